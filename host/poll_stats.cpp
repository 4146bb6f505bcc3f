#include "poll_stats.h"

#include "common/words.h"

QString codeMeaning(int code)
{
    if (code < 0)
        return "no request finished yet";
    if (code == 0)
        return "retry pending";
    if (code == 1)
        return "ok";
    if (code == 100)
        return "ok (remote)";
    // Error bands: base + 1 + owner type, bases 10/40/70 local, +100 remote.
    const bool remote = code > 100;
    const int base = (remote ? code - 100 : code) - 1;
    QString what;
    if (base >= 10 && base <= 21)
        what = "check failed";
    else if (base >= 40 && base <= 51)
        what = "no reply";
    else if (base >= 70 && base <= 81)
        what = "wrong length";
    else
        return "unknown code";
    return remote ? "remote " + what : what;
}

QString codeHint(int code)
{
    const QString what = codeMeaning(code);
    if (what.endsWith("no reply"))
        return "check station, baud and parity";
    if (what.endsWith("check failed"))
        return "check baud, parity and wiring";
    if (what.endsWith("wrong length"))
        return "check baud and parity; raise --byte-timeout-ms if replies come in pieces";
    return QString();
}

QString exceptionMeaning(int exception)
{
    static const char *const names[] = {"illegal function",   "illegal data address",
                                        "illegal data value", "device failure",
                                        "acknowledge",        "device busy"};
    const QString name = exception >= 1 && exception <= 6 ? names[exception - 1] : "unknown";
    return QString("exception 0x%1 (%2)").arg(exception, 2, 16, QChar('0')).arg(name);
}

QString lastMeaning(const PollStats &s)
{
    if (s.lastException >= 0)
        return "refused by the controller: " + exceptionMeaning(s.lastException) +
               QString("; driver code %1").arg(s.lastCode);
    return codeMeaning(s.lastCode);
}

QString statusLine(const PollStats &s)
{
    // A rate needs a quarter of a second of polling.
    const QString rate =
        s.framesPerSecond < 0 ? QString("-") : QString::number(s.framesPerSecond, 'f', 1);
    QString line =
        QString("frames/s %1 | scan %2 ms | scans %3 | retries %4 | given up %5 | last %6")
            .arg(rate)
            .arg(s.scanMs, 0, 'f', 1)
            .arg(s.scans)
            .arg(s.retries)
            .arg(s.givenUp)
            .arg(s.lastException >= 0
                     ? lastMeaning(s)
                     : QString("%1 %2").arg(s.lastCode).arg(codeMeaning(s.lastCode)));
    if (!s.linkUp)
        line += QString(" | LINK LOST, %1 reopen attempts").arg(s.reopenAttempts);
    else if (s.linkLost > 0)
        line += " | link lost " + counted(s.linkLost, "time", "times") + ", up again";
    return line;
}

QString summaryLine(const PollStats &s)
{
    // Received is every whole reply, a controller's refusal included; loss
    // is what did not answer at all, broadcasts aside (no one answers them).
    const long long received = s.repliesHeard;
    const long long errors = s.repliesBad;
    const long long asked = s.framesSent - s.broadcasts;
    const double loss = asked > 0 ? 100.0 * double(asked - received) / double(asked) : 0.0;
    return QString("%1 frames transmitted, %2 received, %3 errors, %4% frame loss")
        .arg(s.framesSent)
        .arg(received)
        .arg(errors)
        .arg(loss, 0, 'f', 1);
}
