#include "read_state.h"

#include "poll_stats.h"

#include <chrono>

namespace {

QString rangeName(int areaType, int first, int last)
{
    return first == last ? elementName(areaType, first)
                         : elementName(areaType, first) + "-" + elementName(areaType, last);
}

// Runs of consecutive elements of `v` for which `unread(offset)` holds.
template <typename F>
QStringList unreadRuns(const VarSpec &v, const QString &prefix, F unread)
{
    QStringList runs;
    int first = -1;
    for (int k = 0; k <= v.count; ++k) {
        const bool out = k < v.count && unread(k);
        if (out && first < 0)
            first = k;
        if (!out && first >= 0) {
            runs << prefix + rangeName(v.areaType, v.address + first, v.address + k - 1);
            first = -1;
        }
    }
    return runs;
}

}  // namespace

const BlockState *ReadState::blockOf(const VarSpec &v, int offset) const
{
    for (int i = 0; i < blocks_.size(); ++i) {
        const BlockState &b = blocks_.at(i);
        // A single-station driver reads every variable from the default station.
        const int station = multiStation_ && v.station ? v.station : defaultStation_;
        if (b.holds(station, v.areaType, v.address + offset))
            return &b;
    }
    return nullptr;
}

bool ReadState::known(const VarSpec &v, int offset) const
{
    const BlockState *b = blockOf(v, offset);
    if (!b || !b->good())
        return false;
    const int element = v.address + offset;
    for (int i = 0; i < writes_.size(); ++i) {
        const UnsettledWrite &w = writes_.at(i);
        if (w.station == b->station && w.areaType == v.areaType && element >= w.address &&
            element < w.address + w.count && (w.pending || w.endedAt > b->readAt))
            return false;
    }
    return true;
}

QStringList ReadState::problems(const QList<VarSpec> &vars, bool scanComplete) const
{
    QStringList lines;
    for (int i = 0; i < blocks_.size(); ++i) {
        const BlockState &b = blocks_.at(i);
        if (b.good())
            continue;
        const QString where = rangeName(b.areaType, b.address, b.address + b.elements - 1) +
                              " on station " + QString::number(b.station);
        const double age =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - b.readAt).count();
        const QString lastRead =
            b.everRead ? QString("last read %1 s ago").arg(age, 0, 'f', 1) : QString("never read");
        if (b.station == 0)
            lines << where +
                         ": station 0 is the broadcast address; it takes writes but cannot be read";
        else if (b.linkLost)
            lines << where + ": link lost, unknown since (" + lastRead + ")";
        else if (b.doubted)
            lines << where +
                         ": bytes came after its reply, which may have answered another "
                         "frame: unknown until read again (" +
                         lastRead + ")";
        else if (b.lastCode == 100)
            lines << where + ": answered on another link than this driver's own, whose replies it "
                             "checks but does not store: not held here";
        else if (b.exception >= 0)
            lines << where + ": refused by the controller: " + exceptionMeaning(b.exception);
        else if (b.lastCode >= 0)
            lines << QString("%1: %2 (code %3 %4): %5")
                         .arg(where, b.line.isEmpty() ? QString("failed") : b.line)
                         .arg(b.lastCode)
                         .arg(codeMeaning(b.lastCode), codeHint(b.lastCode));
    }
    // Elements no block holds: past the area's end, where the driver keeps
    // nothing.
    for (int i = 0; scanComplete && i < vars.size(); ++i) {
        const VarSpec &v = vars.at(i);
        const QStringList runs = unreadRuns(v, QString(), [&](int k) { return !blockOf(v, k); });
        for (int r = 0; r < runs.size(); ++r)
            lines << runs.at(r) + ": past the end of the " + areaNameOf(v.areaType) +
                         " area, never read";
    }
    return lines;
}

QStringList ReadState::neverRead(const QList<VarSpec> &vars) const
{
    QStringList ranges;
    for (int i = 0; i < vars.size(); ++i) {
        const VarSpec &v = vars.at(i);
        const QString prefix = multiStation_ ? QString::number(v.station) + ":" : QString();
        ranges << unreadRuns(v, prefix, [&](int k) {
            const BlockState *b = blockOf(v, k);
            return !(b && b->everRead);
        });
    }
    return ranges;
}
