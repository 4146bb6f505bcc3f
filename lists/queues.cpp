// The write queue and the one-off read queue. Both refuse repeats: the newest
// value of a pending write wins, and a one-off read already waiting is not
// asked for twice.
#include <climits>

#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"

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

int clampToInt(long long v)
{
    return v > INT_MAX ? INT_MAX : (v < INT_MIN ? INT_MIN : int(v));
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
    // A size below 1 means no cutting; a total below 1 has no piece.
    long long pieces = 0;
    if (total >= 1)
        pieces = size < 1 ? 1 : total / size + (total % size ? 1 : 0);
    if (size < 1)
        size = total;

    MutexHold hold(d.listMutex);
    QList<RW_VAR> &list = d.onceReadList;
    if (pieces < 1)
        return list.size();
    for (long long k = 0; k < pieces; ++k) {
        const long long address = start + step * k * size;
        // Once the queue is full no later piece can enter: stop cutting, but
        // leave the record on the last piece as a full run would.
        if (list.size() >= QueueLimit || address > INT_MAX) {
            k = pieces - 1;
            var->address = clampToInt(start + step * k * size);
            var->count = int(total - k * size);
            break;
        }
        var->address = int(address);
        var->count = int(k == pieces - 1 ? total - k * size : size);
        bool repeat = false;
        for (int i = 0; i < list.size() && !repeat; ++i)
            repeat = sameOnceRead(list.at(i), *var);
        if (!repeat)
            list.append(*var);
    }
    return list.size();
}
