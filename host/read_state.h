// Which polled values rvpoll may show as numbers: a value is known while
// the last read of its block succeeded. Values never read, past an area's
// end, of a silent or wrong station, or of a block whose last read failed
// are unknown, never shown as a number.
#ifndef RVPOLL_READ_STATE_H
#define RVPOLL_READ_STATE_H

#include <QList>
#include <QStringList>

#include "poller.h"
#include "common/varspec.h"
#include "write_tracker.h"

class ReadState {
public:
    ReadState(const QList<BlockState> &blocks, int defaultStation, bool multiStation,
              const QList<UnsettledWrite> &writes = QList<UnsettledWrite>())
        : blocks_(blocks),
          defaultStation_(defaultStation),
          multiStation_(multiStation),
          writes_(writes)
    {}
    // The block that reads element `offset` of `v`, or null.
    const BlockState *blockOf(const VarSpec &v, int offset) const;
    // Read good, and not since written by a write that has not landed.
    bool known(const VarSpec &v, int offset) const;
    // One line per failing block or unreadable range, with the reason:
    // "D0-D3 on station 2: no reply (code 41): check station, baud and parity".
    // Ranges no block reads are named once a scan is complete.
    QStringList problems(const QList<VarSpec> &vars, bool scanComplete) const;
    // Ranges of `vars` never read in this run, "D8000-D8010"; empty when
    // every value was read at least once.
    QStringList neverRead(const QList<VarSpec> &vars) const;

private:
    QList<BlockState> blocks_;
    int defaultStation_;
    bool multiStation_;
    QList<UnsettledWrite> writes_;
};

#endif
