#include "line_stats.h"

#include <algorithm>

#include "poll_stats.h"

namespace {

// The value below which `share` of the sorted samples lie.
float quantile(const std::vector<float> &sorted, double share)
{
    const size_t at = size_t(share * double(sorted.size() - 1) + 0.5);
    return sorted[std::min(at, sorted.size() - 1)];
}

// Round trips kept per station: enough for stable percentiles, bounded for
// runs of days.
const size_t kRttSamples = 65536;

}  // namespace

int exceptionOf(const Exchange &x)
{
    return x.outcome == Exchange::Answered && x.reply.size() == 5 && (uchar(x.reply.at(1)) & 0x80)
               ? uchar(x.reply.at(2))
               : -1;
}

QString describeExchange(const Exchange &x, DriverVerdict verdict)
{
    switch (x.outcome) {
    case Exchange::Lost: return "link lost";
    case Exchange::Broadcast: return "broadcast, no answer expected";
    case Exchange::Cut:
        return QString("cut short (%1 of %2 bytes, then silent %3 ms)")
            .arg(x.reply.size())
            .arg(x.expected)
            .arg(x.silenceMs, 0, 'f', 0);
    case Exchange::NoAnswer:
        if (x.otherStation > 0)
            return "a reply of another station";
        if (x.otherFunction > 0)
            return "a reply to another frame";
        return x.skipped > 0 ? QString("only noise (%1 bytes)").arg(x.skipped) : "no answer";
    case Exchange::Answered: break;
    }
    if (exceptionOf(x) >= 0)
        return exceptionMeaning(exceptionOf(x));
    if (verdict == DriverVerdict::BadCrc)
        return "bad CRC";
    return verdict == DriverVerdict::Accepted ? "answered" : "a reply the driver rejected";
}

void LineStats::note(int station, const Exchange &x, DriverVerdict verdict)
{
    StationLine &s = stations_[station];
    ++s.exchanges;
    s.strayBefore += x.strayBefore;
    s.strayAfter += x.strayAfter;
    s.skipped += x.skipped;
    s.late += x.late;
    s.otherStation += x.otherStation;
    s.otherFunction += x.otherFunction;
    s.askedAgain += x.askedAgain ? 1 : 0;
    switch (x.outcome) {
    case Exchange::NoAnswer: ++s.noAnswer; return;
    case Exchange::Cut: ++s.cut; return;
    case Exchange::Answered: break;
    default: return;
    }
    const int exception = exceptionOf(x);
    if (exception >= 0) {
        ++s.exceptions;
        ++s.exceptionCodes[exception];
    } else if (verdict == DriverVerdict::BadCrc) {
        ++s.badCrc;
    } else if (verdict == DriverVerdict::Accepted) {
        ++s.answered;
        if (s.rttMs.size() < kRttSamples)
            s.rttMs.push_back(float(x.rttMs));
        else
            s.rttMs[size_t(s.answered) % kRttSamples] = float(x.rttMs);
    }
}

void LineStats::noteLate(int station, int bytes)
{
    stations_[station].late += bytes;
}

QString LineStats::summary() const
{
    QString out;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        QString line = QString("station %1: %2 exchanges, %3 answered, %4 no answer, %5 cut short, "
                               "%6 bad CRC, %7 exceptions, %8 of another station, %9 to another "
                               "frame, %10 asked again")
                           .arg(it.key())
                           .arg(s.exchanges)
                           .arg(s.answered)
                           .arg(s.noAnswer)
                           .arg(s.cut)
                           .arg(s.badCrc)
                           .arg(s.exceptions)
                           .arg(s.otherStation)
                           .arg(s.otherFunction)
                           .arg(s.askedAgain);
        for (auto e = s.exceptionCodes.constBegin(); e != s.exceptionCodes.constEnd(); ++e)
            line += QString("; %1 x %2").arg(e.value()).arg(exceptionMeaning(e.key()));
        if (s.strayBefore + s.strayAfter + s.skipped + s.late > 0)
            line += QString("; stray bytes: %1 before requests, %2 after replies, %3 skipped, "
                            "%4 late")
                        .arg(s.strayBefore)
                        .arg(s.strayAfter)
                        .arg(s.skipped)
                        .arg(s.late);
        if (!s.rttMs.empty()) {
            std::vector<float> sorted = s.rttMs;
            std::sort(sorted.begin(), sorted.end());
            line += QString("; round trip ms min %1, median %2, p95 %3, max %4")
                        .arg(sorted.front(), 0, 'f', 1)
                        .arg(quantile(sorted, 0.5), 0, 'f', 1)
                        .arg(quantile(sorted, 0.95), 0, 'f', 1)
                        .arg(sorted.back(), 0, 'f', 1);
        }
        out += line + '\n';
    }
    return out;
}

QString LineStats::json() const
{
    QStringList items;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        QString item =
            QString("\"%1\":{\"exchanges\":%2,\"answered\":%3,\"no_answer\":%4,\"cut\":%5,"
                    "\"bad_crc\":%6,\"exceptions\":%7,\"other_station\":%8,\"other_frame\":%9,"
                    "\"asked_again\":%10,\"stray_before\":%11,\"stray_after\":%12,"
                    "\"skipped\":%13,\"late\":%14")
                .arg(it.key())
                .arg(s.exchanges)
                .arg(s.answered)
                .arg(s.noAnswer)
                .arg(s.cut)
                .arg(s.badCrc)
                .arg(s.exceptions)
                .arg(s.otherStation)
                .arg(s.otherFunction)
                .arg(s.askedAgain)
                .arg(s.strayBefore)
                .arg(s.strayAfter)
                .arg(s.skipped)
                .arg(s.late);
        if (!s.rttMs.empty()) {
            std::vector<float> sorted = s.rttMs;
            std::sort(sorted.begin(), sorted.end());
            item += QString(",\"rtt_ms\":{\"min\":%1,\"median\":%2,\"p95\":%3,\"max\":%4}")
                        .arg(sorted.front(), 0, 'f', 2)
                        .arg(quantile(sorted, 0.5), 0, 'f', 2)
                        .arg(quantile(sorted, 0.95), 0, 'f', 2)
                        .arg(sorted.back(), 0, 'f', 2);
        }
        items << item + "}";
    }
    return "{" + items.join(",") + "}";
}

QStringList LineStats::hints() const
{
    long long answered = 0, cut = 0, late = 0, noise = 0, repeats = 0;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        answered += s.answered + s.exceptions;
        cut += s.cut;
        late += s.late;
        // Skipped bytes with no other station's reply among them are noise.
        noise += s.badCrc + s.otherFunction + (s.skipped > 0 && s.otherStation == 0 ? 1 : 0);
        repeats += s.askedAgain + (s.strayBefore > 0 ? 1 : 0);
    }
    QStringList hints;
    if (cut > 0 && late > 0)
        hints << "replies arrive in pieces with long pauses: raise --byte-timeout-ms";
    if (noise > 0)
        hints << "noise on the line (bad CRCs, bytes that answer nothing): check baud and parity";
    if (repeats > 0 || (late > 0 && cut == 0))
        hints << "the line delays or repeats replies: raise --timeout-ms above the slowest reply";
    if (answered == 0 && cut == 0 && noise == 0)
        hints << "nothing answered: check station, baud and parity";
    return hints;
}

QString LineStats::neverAnswered() const
{
    long long cut = 0, garbled = 0;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        cut += it.value().cut;
        garbled += it.value().badCrc + it.value().exceptions + it.value().skipped;
    }
    if (cut > 0)
        return QString("every reply was cut short (%1 times)").arg(cut);
    if (garbled > 0)
        return "no reply was whole and good: only noise, bad CRCs, refusals or other stations' "
               "replies";
    return "the controller never answered";
}
