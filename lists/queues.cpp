// The write queue and the one-off read queue. Both refuse repeats: the newest
// value of a pending write wins, and a one-off read already waiting is not
// asked for twice.
#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"
#include "read_list_passes.h"

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
    const ComInfo *info = d.comInfo;
    if (!info)
        return 0;
    if (info->multiStation == 0)
        var->station = info->defaultStation;
    const int a = StringAddressToInt(var->areaType, var->addressText);
    if (a < 0 || var->station == 0)
        return 0;
    var->spare1 = 0;
    var->spare2 = 0;

    // Bring the request into frame units: registers for word areas, whole
    // bytes from a byte boundary for bit areas.
    long long start = var->address;
    long long total = var->count;
    long long size = info->blockUnits;
    long long step = 1;
    if (isWordArea(var->areaType)) {
        start = a;
        var->address = a;
    } else if (isBitArea(var->areaType)) {
        start = a & ~7;
        total = ((a & 7) + (long long)var->count + 7) / 8;
        var->address = int(start);
        var->count = int(total);
        step = 8;
        if (var->areaType <= 1)
            size = 1;  // X and Y are read one byte per frame
    }

    MutexHold hold(d.listMutex);
    QList<RW_VAR> &list = d.onceReadList;
    cutPieces(start, step, total, size, [&](int address, int count) {
        if (list.size() >= QueueLimit)
            return false;  // no later piece can enter
        var->address = address;
        var->count = count;
        bool repeat = false;
        for (int i = 0; i < list.size() && !repeat; ++i)
            repeat = sameOnceRead(list.at(i), *var);
        if (!repeat)
            list.append(*var);
        return true;
    });
    // The record ends on the last piece, queued or not, its address in the
    // 32 bits the record has.
    long long last;
    const long long pieces = pieceCount(total, size, last);
    if (pieces >= 1) {
        var->address = int(static_cast<unsigned>(start + step * ((pieces - 1) * size)));
        var->count = int(last);
    }
    return list.size();
}
