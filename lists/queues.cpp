// The write queue and the one-off read queue. Both refuse repeats: the newest
// value of a pending write wins, and a one-off read already waiting is not
// asked for twice.
#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"
#include "pieces.h"

namespace {

// The de-duplicating paths stop growing a queue here.
const int QueueLimit = 1024;

bool sameWriteTarget(const RW_VAR &a, const RW_VAR &b)
{
    return a.station == b.station && a.areaType == b.areaType && a.address == b.address &&
           a.count == b.count;
}

bool sameOnceRead(const RW_VAR &a, const RW_VAR &b)
{
    return a.ownerType == b.ownerType && a.ownerId == b.ownerId && sameWriteTarget(a, b);
}

// A one-off read in frame units: `total` units from `start`, cut into
// pieces of `size`, piece k starting at start + step * k * size.
struct FrameUnits {
    long long start;
    long long total;
    long long size;
    long long step;
};

// The station of a single-station link, the parsed address; false (and
// nothing queued) for a negative address or station 0.
bool normalise(RW_VAR &var, const ComInfo &info, int &address)
{
    if (info.multiStation == 0)
        var.station = info.defaultStation;
    address = StringAddressToInt(var.areaType, var.addressText);
    if (address < 0 || var.station == 0)
        return false;
    var.spare1 = 0;
    var.spare2 = 0;
    return true;
}

// Registers for word areas, whole bytes from a byte boundary for bit areas;
// the record takes the new address and count. Other types keep theirs.
FrameUnits toFrameUnits(RW_VAR &var, const ComInfo &info, int address)
{
    FrameUnits u = {var.address, var.count, info.blockUnits, 1};
    if (isWordArea(var.areaType)) {
        u.start = address;
        var.address = address;
    } else if (isBitArea(var.areaType)) {
        u.start = address & ~7;
        u.total = ((address & 7) + (long long)var.count + 7) / 8;
        var.address = int(u.start);
        var.count = int(u.total);
        u.step = 8;
        if (isOctalArea(var.areaType))
            u.size = 1;  // X and Y are read one byte per frame
    }
    return u;
}

// Appends each piece not already waiting, while the queue has room.
void queuePieces(QList<RW_VAR> &list, RW_VAR &var, const FrameUnits &u)
{
    cutPieces(u.start, u.step, u.total, u.size, [&](int address, int count) {
        if (list.size() >= QueueLimit)
            return false;  // no later piece can enter
        var.address = address;
        var.count = count;
        bool repeat = false;
        for (int i = 0; i < list.size() && !repeat; ++i)
            repeat = sameOnceRead(list.at(i), var);
        if (!repeat)
            list.append(var);
        return true;
    });
}

// The record ends on the last piece, queued or not, its address in the 32
// bits the record has.
void endOnLastPiece(RW_VAR &var, const FrameUnits &u)
{
    long long last;
    const long long pieces = pieceCount(u.total, u.size, last);
    if (pieces >= 1) {
        var.address = int(static_cast<unsigned>(u.start + u.step * ((pieces - 1) * u.size)));
        var.count = int(last);
    }
}

}  // namespace

extern "C" int AddListWriteVar(RW_VAR *var, int mode)
{
    QList<RW_VAR> &list = PLC_driver.writeList;
    MutexHold hold(PLC_driver.listMutex);
    if (!var)
        return list.size();
    if (mode == 1 || list.size() < 2) {
        list.append(*var);
        return list.size();
    }
    // The head may already be on the wire: a write equal to it must still go
    // out after it, so it is never the one replaced.
    for (int i = 1; i < list.size(); ++i) {
        if (sameWriteTarget(list.at(i), *var)) {
            list[i] = *var;
            return list.size();
        }
    }
    if (list.size() < QueueLimit)
        list.append(*var);
    return list.size();
}

extern "C" int AddListOnceReadVar(RW_VAR *var, int mode)
{
    Quorvel_RV_Series &d = PLC_driver;
    if (!var)
        return 0;
    if (mode == 1) {
        MutexHold hold(d.listMutex);
        d.onceReadList.append(*var);
        return d.onceReadList.size();
    }
    int address;
    if (!d.comInfo || !normalise(*var, *d.comInfo, address))
        return 0;
    const FrameUnits units = toFrameUnits(*var, *d.comInfo, address);

    MutexHold hold(d.listMutex);
    queuePieces(d.onceReadList, *var, units);
    endOnLastPiece(*var, units);
    return d.onceReadList.size();
}
