#include "line_stats.h"

#include <algorithm>

#include "common/words.h"
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

int exceptionOf(const rvlink::Exchange &x)
{
    return x.outcome == rvlink::Exchange::Answered && x.reply.size() == 5 &&
                   rvlink::isException(x.reply[1])
               ? x.reply[2]
               : -1;
}

QString describeExchange(const rvlink::Exchange &x, DriverVerdict verdict)
{
    switch (x.outcome) {
    case rvlink::Exchange::Lost: return "link lost";
    case rvlink::Exchange::Broadcast: return "broadcast, no answer expected";
    case rvlink::Exchange::Cut:
        return QString("cut short (%1 of %2 bytes, then silent %3 ms)")
            .arg(x.reply.size())
            .arg(x.expected)
            .arg(x.silenceMs, 0, 'f', 0);
    case rvlink::Exchange::NoAnswer:
        if (x.echoHeard)
            return "only the request's own echo came back";
        if (x.otherStation > 0)
            return "a reply of another station";
        if (x.otherFrame > 0)
            return "a reply to another frame";
        return x.skipped > 0 ? "only noise (" + counted(x.skipped, "byte", "bytes") + ")"
                             : QString("no answer");
    case rvlink::Exchange::Unconfirmed:
        return "not confirmed: the reply could be a stray copy (" +
               QString::fromStdString(x.doubt) + ")";
    case rvlink::Exchange::Answered: break;
    }
    if (exceptionOf(x) >= 0)
        return exceptionMeaning(exceptionOf(x));
    if (verdict == DriverVerdict::BadCrc)
        return "bad CRC";
    return verdict == DriverVerdict::Accepted ? "answered" : "a reply the driver rejected";
}

QString networkSummary(const rvlink::NetworkFigures &n)
{
    QString text = QString("network: %1, the last made in %2 ms")
                       .arg(counted(n.connects, "connection", "connections"))
                       .arg(n.connectMs, 0, 'f', 1);
    if (n.rttMs >= 0)
        text += QString("; TCP round trip %1 ms, the rest of each round trip is the gateway's "
                        "and the line's")
                    .arg(n.rttMs, 0, 'f', 2);
    if (n.stale > 0)
        text += "; " + counted(n.stale, "reply", "replies") +
                " to an earlier request told by its transaction and dropped";
    if (n.gatewayNoAnswer > 0)
        text += "; the gateway said " + counted(n.gatewayNoAnswer, "time", "times") +
                " that the station did not answer";
    if (n.unsent > 0)
        text += "; " + counted(n.unsent, "request", "requests") + " no Modbus TCP frame carries";
    return text;
}

QString networkJson(const rvlink::NetworkFigures &n)
{
    return QString("{\"connects\":%1,\"connect_ms\":%2,\"rtt_ms\":%3,\"stale_replies\":%4,"
                   "\"gateway_no_answer\":%5,\"unsent\":%6}")
        .arg(n.connects)
        .arg(n.connectMs, 0, 'f', 2)
        .arg(n.rttMs < 0 ? QString("null") : QString::number(n.rttMs, 'f', 2))
        .arg(n.stale)
        .arg(n.gatewayNoAnswer)
        .arg(n.unsent);
}

void LineStats::note(int station, const rvlink::Exchange &x, DriverVerdict verdict)
{
    StationLine &s = stations_[station];
    ++s.exchanges;
    s.strayBefore += x.strayBefore;
    s.strayAfter += x.strayAfter;
    s.skipped += x.skipped;
    s.late += x.late;
    s.otherStation += x.otherStation;
    s.otherFrame += x.otherFrame;
    s.doubted += x.doubted ? 1 : 0;
    s.confirmed += x.confirmed ? 1 : 0;
    s.checks += x.checks;
    s.echoMissing += x.echoMissing ? 1 : 0;
    s.echoHeard += x.echoHeard ? 1 : 0;
    switch (x.outcome) {
    case rvlink::Exchange::NoAnswer: ++s.noAnswer; return;
    case rvlink::Exchange::Cut: ++s.cut; return;
    case rvlink::Exchange::Unconfirmed: ++s.unconfirmed; return;
    case rvlink::Exchange::Answered: break;
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

namespace {

// A count of a station, as the summary words it and as its JSON key.
struct Count {
    const char *words, *key;
    long long StationLine::*count;
};

const Count kCounts[] = {
    {"exchanges", "exchanges", &StationLine::exchanges},
    {"answered", "answered", &StationLine::answered},
    {"no answer", "no_answer", &StationLine::noAnswer},
    {"cut short", "cut", &StationLine::cut},
    {"bad CRC", "bad_crc", &StationLine::badCrc},
    {"exceptions", "exceptions", &StationLine::exceptions},
    {"of another station", "other_station", &StationLine::otherStation},
    {"to another frame", "other_frame", &StationLine::otherFrame},
    {"doubted", "doubted", &StationLine::doubted},
    {"confirmed", "confirmed", &StationLine::confirmed},
    {"not confirmed", "not_confirmed", &StationLine::unconfirmed},
    {"confirming reads", "confirming_reads", &StationLine::checks},
};
// Stray bytes, worded only where there are any.
const Count kBytes[] = {
    {"before requests", "stray_before", &StationLine::strayBefore},
    {"after replies", "stray_after", &StationLine::strayAfter},
    {"skipped", "skipped", &StationLine::skipped},
    {"late", "late", &StationLine::late},
};

// Min, median, 95th percentile and max of a station's round trips.
std::vector<float> rttFigures(const StationLine &s)
{
    std::vector<float> sorted = s.rttMs;
    std::sort(sorted.begin(), sorted.end());
    return {sorted.front(), quantile(sorted, 0.5), quantile(sorted, 0.95), sorted.back()};
}

}  // namespace

QString LineStats::summary() const
{
    QString out;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        QStringList counts, bytes;
        for (const auto &c : kCounts)
            counts << QString("%1 %2").arg(s.*c.count).arg(c.words);
        QString line = QString("station %1: ").arg(it.key()) + counts.join(", ");
        for (auto e = s.exceptionCodes.constBegin(); e != s.exceptionCodes.constEnd(); ++e)
            line += QString("; %1 x %2").arg(e.value()).arg(exceptionMeaning(e.key()));
        long long stray = 0;
        for (const auto &b : kBytes) {
            bytes << QString("%1 %2").arg(s.*b.count).arg(b.words);
            stray += s.*b.count;
        }
        if (stray > 0)
            line += "; stray bytes: " + bytes.join(", ");
        if (!s.rttMs.empty()) {
            const std::vector<float> r = rttFigures(s);
            line += QString("; round trip ms min %1, median %2, p95 %3, max %4")
                        .arg(r[0], 0, 'f', 1)
                        .arg(r[1], 0, 'f', 1)
                        .arg(r[2], 0, 'f', 1)
                        .arg(r[3], 0, 'f', 1);
        }
        out += line + '\n';
    }
    return hasNetwork_ ? out + networkSummary(network_) + '\n' : out;
}

QString LineStats::networkField() const
{
    return hasNetwork_ ? ",\"network\":" + networkJson(network_) : QString();
}

QString LineStats::json() const
{
    QStringList items;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        QStringList fields;
        for (const auto &c : kCounts)
            fields << QString("\"%1\":%2").arg(c.key).arg(s.*c.count);
        for (const auto &b : kBytes)
            fields << QString("\"%1\":%2").arg(b.key).arg(s.*b.count);
        if (!s.rttMs.empty()) {
            const std::vector<float> r = rttFigures(s);
            fields << QString("\"rtt_ms\":{\"min\":%1,\"median\":%2,\"p95\":%3,\"max\":%4}")
                          .arg(r[0], 0, 'f', 2)
                          .arg(r[1], 0, 'f', 2)
                          .arg(r[2], 0, 'f', 2)
                          .arg(r[3], 0, 'f', 2);
        }
        items << QString("\"%1\":{").arg(it.key()) + fields.join(",") + "}";
    }
    return "{" + items.join(",") + "}";
}

QStringList LineStats::hints() const
{
    long long answered = 0, cut = 0, late = 0, noise = 0, repeats = 0, echoMissing = 0,
              echoHeard = 0;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        const StationLine &s = it.value();
        answered += s.answered + s.exceptions;
        cut += s.cut;
        late += s.late;
        // Skipped bytes with no other station's reply among them are noise.
        noise += s.badCrc + s.otherFrame + (s.skipped > 0 && s.otherStation == 0 ? 1 : 0);
        // A doubt is no sign by itself: blocks holding the same values look
        // alike. Bytes that came when nothing was asked are.
        repeats += s.strayBefore + s.unconfirmed;
        echoMissing += s.echoMissing;
        echoHeard += s.echoHeard;
    }
    QStringList hints;
    // A wrong --echo shows before anything else would: say it first.
    if (echoHeard > 0)
        hints << "each request comes back before its reply (a 2-wire adapter's echo): add --echo";
    if (echoMissing > 0)
        hints << "replies come without the echo --echo waits for: leave --echo out";
    if (cut > 0 && late > 0)
        hints << "replies arrive in pieces with long pauses: raise --byte-timeout-ms";
    if (noise > 0)
        hints << "noise on the line (bad CRCs, bytes that answer nothing): check baud and parity";
    if (repeats > 0 || (late > 0 && cut == 0))
        hints << "the line delays or repeats replies: raise --timeout-ms above the slowest reply";
    if (!stations_.isEmpty() && answered == 0 && cut == 0 && noise == 0 && echoHeard == 0)
        hints << "nothing answered: check station, baud and parity";
    return hints;
}

QString LineStats::neverAnswered() const
{
    long long cut = 0, garbled = 0, refused = 0;
    QMap<int, long long> codes;
    for (auto it = stations_.constBegin(); it != stations_.constEnd(); ++it) {
        cut += it.value().cut;
        garbled += it.value().badCrc + it.value().skipped;
        refused += it.value().exceptions;
        for (auto e = it.value().exceptionCodes.constBegin();
             e != it.value().exceptionCodes.constEnd(); ++e)
            codes[e.key()] += e.value();
    }
    if (cut > 0)
        return "every reply was cut short (" + counted(cut, "time", "times") + ")";
    if (refused > 0 && garbled == 0) {
        QStringList why;
        for (auto e = codes.constBegin(); e != codes.constEnd(); ++e)
            why << exceptionMeaning(e.key());
        return "the controller refused every request: " + why.join(", ");
    }
    if (garbled + refused > 0)
        return "no reply was whole and good: only noise, bad CRCs, refusals or other stations' "
               "replies";
    return "the controller never answered";
}
