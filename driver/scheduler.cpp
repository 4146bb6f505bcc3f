// Choice of the next request: writes first, then one-off reads, at most five
// of either in a row, then one cyclic read. A frame still unanswered is
// returned again, which is how retries happen.
#include "driver_object.h"
#include "locks.h"
#include "../frames/frames.h"

namespace {

const int burstLimit = 5;

typedef void (*FrameBuilder)(RW_VAR *);

// A one-off read that can never be framed is finished as given up, so its
// requester is not left waiting.
struct DroppedOnceRead {
    bool pending = false;
    int ownerType = 0;
    int ownerId = 0;
};

bool sameOwnerPending(const QList<RW_VAR> &list, int ownerType, int ownerId)
{
    for (int i = 0; i < list.size(); ++i)
        if (list.at(i).ownerType == ownerType && list.at(i).ownerId == ownerId)
            return true;
    return false;
}

// Builds the frame for the head of `list`. A head for which no frame can be
// built (an area type the controller format has no frame for) would block
// its list for ever, stopping all polling in the cyclic case: it is dropped.
void buildHead(QList<RW_VAR> &list, FrameBuilder build, DroppedOnceRead *dropped)
{
    Quorvel_RV_Series &d = PLC_driver;
    build(&list.first());
    if (!d.sendQueue.isEmpty())
        return;
    const RW_VAR head = list.takeFirst();
    if (dropped && !sameOwnerPending(list, head.ownerType, head.ownerId)) {
        dropped->pending = true;
        dropped->ownerType = head.ownerType;
        dropped->ownerId = head.ownerId;
    }
}

}  // namespace

extern "C" Protocol *ComCommunication()
{
    Quorvel_RV_Series &d = PLC_driver;
    DroppedOnceRead dropped;
    Protocol *next = nullptr;
    int context = 0;

    lockMutex(d.listMutex);
    ComInfo *info = d.comInfo;
    if (!d.sendQueue.isEmpty()) {
        next = &d.sendQueue.first();
    } else if (info) {
        const bool remote = info->remoteLink != 0;
        if (!d.writeList.isEmpty() && d.writeBurst < burstLimit) {
            d.currentKind = KindWrite;
            buildHead(d.writeList, remote ? Remote_WriteVar : WriteRegister, nullptr);
            ++d.writeBurst;
        } else if (!d.onceReadList.isEmpty() && d.onceBurst < burstLimit) {
            d.currentKind = KindOnceRead;
            buildHead(d.onceReadList, remote ? Remote_ReadVar : ReadRegister, &dropped);
            ++d.onceBurst;
        } else if (!d.readList.isEmpty()) {
            d.currentKind = KindRead;
            buildHead(d.readList, remote ? Remote_ReadVar : ReadRegister, nullptr);
            d.writeBurst = 0;
            d.onceBurst = 0;
        } else {
            d.writeBurst = 0;
            d.onceBurst = 0;
            info->scanComplete = 1;
        }
        if (!d.sendQueue.isEmpty())
            next = &d.sendQueue.first();
        context = info->callbackContext;
    }
    const HostCallBack callback = d.callback;
    unlockMutex(d.listMutex);

    // Outside the lock, so that the runtime may queue new work from it.
    if (dropped.pending && callback)
        callback(context, dropped.ownerType, dropped.ownerId, 2);
    return next;
}
