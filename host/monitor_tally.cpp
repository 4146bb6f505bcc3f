#include "monitor_tally.h"

#include <algorithm>

#include "common/words.h"

namespace {

// The line's record of an exchange, as the poll's own reading of it.
rvlink::Exchange asLineExchange(const rvlink::BusExchange &x, DriverVerdict &verdict)
{
    rvlink::Exchange e;
    e.reply = x.reply;
    e.expected = x.expected;
    e.rttMs = x.replyMs;
    verdict = DriverVerdict::Rejected;
    switch (x.outcome) {
    case rvlink::BusExchange::Ok: verdict = DriverVerdict::Accepted; break;
    case rvlink::BusExchange::BadCrc: verdict = DriverVerdict::BadCrc; break;
    case rvlink::BusExchange::Cut: e.outcome = rvlink::Exchange::Cut; return e;
    case rvlink::BusExchange::NoReply: e.outcome = rvlink::Exchange::NoAnswer; return e;
    default: break;
    }
    e.outcome = rvlink::Exchange::Answered;
    return e;
}

QString ms(double v)
{
    return v < 0 ? QString("-") : QString("%1 ms").arg(v, 0, 'f', 0);
}

QString seconds(long long us)
{
    return QString("%1 s").arg(us / 1e6, 0, 'f', 1);
}

}  // namespace

void MonitorTally::note(const rvlink::BusExchange &x, const HeardExchange &h)
{
    if (x.outcome == rvlink::BusExchange::Noise || x.outcome == rvlink::BusExchange::Stray) {
        ++(x.outcome == rvlink::BusExchange::Noise ? noise_ : stray_);
        noiseBytes_ += x.outcome == rvlink::BusExchange::Noise ? long(x.reply.size()) : 0;
        return;
    }
    ++exchanges_;
    if (x.outcome == rvlink::BusExchange::Broadcast) {
        ++broadcasts_;
        return;
    }
    if (!heardStations_.contains(h.station))
        heardStations_ << h.station;
    DriverVerdict verdict = DriverVerdict::Rejected;
    const rvlink::Exchange e = asLineExchange(x, verdict);
    line_.note(h.station, e, verdict);
    if (!h.write) {
        Block &b = blocks_[h.block()];
        if (b.reads++ == 0) {
            blockOrder_ << h.block();
            b.firstUs = h.atUs;
        } else {
            b.longestMs = std::max(b.longestMs, (h.atUs - b.lastUs) / 1000.0);
        }
        b.lastUs = h.atUs;
    }
    for (int i = 0; i < h.values.size(); ++i) {
        const QString key = QString("%1:%2").arg(h.station).arg(h.values[i].first);
        if (!elements_.contains(key))
            elementOrder_ << key;
        Seen &s = elements_[key];
        s.value = h.values[i].second;
        s.atUs = h.atUs;
    }
}

QString MonitorTally::countsLine() const
{
    return counted(exchanges_, "exchange", "exchanges") + ", " +
           counted(broadcasts_, "broadcast", "broadcasts") + ", " +
           counted(noise_, "run of noise", "runs of noise") +
           QString(" (%1), ").arg(counted(noiseBytes_, "byte", "bytes")) +
           counted(stray_, "stray reply", "stray replies");
}

QString MonitorTally::screen(long long nowUs, int maxRows, int width) const
{
    QString out = countsLine() + "\n" + line_.summary() +
                  "\nblock                          reads   cycle  longest  last\n";
    for (const QString &key : blockOrder_) {
        const Block &b = blocks_[key];
        out += QString("%1 %2 %3 %4  %5 ago\n")
                   .arg(key.left(30), -30)
                   .arg(b.reads, 5)
                   .arg(ms(b.cycleMs()), 7)
                   .arg(ms(b.longestMs), 7)
                   .arg(seconds(nowUs - b.lastUs));
    }
    // Elements side by side, as many as the width takes, as many rows as fit.
    out += "\nelement: value, age\n";
    const bool stations = heardStations_.size() > 1;
    const int cell = 26, perRow = std::max(1, width / cell);
    int shown = 0;
    for (const QString &key : elementOrder_) {
        if (shown == maxRows * perRow) {
            out += QString("... %1 more\n").arg(elementOrder_.size() - shown);
            break;
        }
        const Seen &s = elements_[key];
        out += QString("%1 %2 %3")
                   .arg(stations ? key : key.mid(key.indexOf(':') + 1), -9)
                   .arg(s.value, 7)
                   .arg(seconds(nowUs - s.atUs), 7)
                   .leftJustified(cell);
        if (++shown % perRow == 0 || shown == elementOrder_.size())
            out += "\n";
    }
    return out;
}

QString MonitorTally::summary() const
{
    QString out = countsLine() + "\n" + line_.summary();
    for (const QString &key : blockOrder_) {
        const Block &b = blocks_[key];
        out += QString("block %1: %2, cycle %3, longest %4\n")
                   .arg(key)
                   .arg(counted(b.reads, "read", "reads"))
                   .arg(ms(b.cycleMs()))
                   .arg(ms(b.longestMs));
    }
    return out;
}

QString MonitorTally::json() const
{
    QStringList blocks;
    for (const QString &key : blockOrder_) {
        const Block &b = blocks_[key];
        blocks << QString("%1:{\"reads\":%2,\"cycle_ms\":%3,\"longest_ms\":%4}")
                      .arg(jsonString(key))
                      .arg(b.reads)
                      .arg(b.cycleMs() < 0 ? QString("null") : QString::number(b.cycleMs(), 'f', 1))
                      .arg(b.longestMs, 0, 'f', 1);
    }
    return QString("{\"summary\":true,\"exchanges\":%1,\"broadcasts\":%2,\"noise\":%3,"
                   "\"noise_bytes\":%4,\"stray_replies\":%5,\"stations\":%6,\"blocks\":{%7}}")
        .arg(exchanges_)
        .arg(broadcasts_)
        .arg(noise_)
        .arg(noiseBytes_)
        .arg(stray_)
        .arg(line_.json())
        .arg(blocks.join(","));
}
