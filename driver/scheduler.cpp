// Choice of the next request: writes first, then one-off reads, at most five
// of either in a row, then one cyclic read. A frame still unanswered is
// returned again, which is how retries happen.
#include "call_back.h"
#include "driver_object.h"
#include "frame_builders.h"
#include "locks.h"

namespace {

const int burstLimit = 5;

typedef bool (*FrameBuilder)(RW_VAR *, bool remote);

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
// A dropped one-off read is finished as given up, so its requester is not
// left waiting.
void buildHead(QList<RW_VAR> &list, FrameBuilder build, bool remote, OwedCallBack *dropped)
{
    if (build(&list.first(), remote))
        return;
    const RW_VAR head = list.takeFirst();
    if (dropped && !sameOwnerPending(list, head.ownerType, head.ownerId))
        dropped->owe(head, 2);
}

}  // namespace

extern "C" Protocol *ComCommunication()
{
    Quorvel_RV_Series &d = PLC_driver;
    OwedCallBack dropped;
    Protocol *next = nullptr;

    lockMutex(d.listMutex);
    ComInfo *info = d.comInfo;
    if (!d.sendQueue.isEmpty()) {
        next = &d.sendQueue.first();
    } else if (info) {
        const bool remote = info->remoteLink != 0;
        if (!d.writeList.isEmpty() && d.writeBurst < burstLimit) {
            d.currentKind = KindWrite;
            buildHead(d.writeList, frameWrite, remote, nullptr);
            ++d.writeBurst;
        } else if (!d.onceReadList.isEmpty() && d.onceBurst < burstLimit) {
            d.currentKind = KindOnceRead;
            buildHead(d.onceReadList, frameRead, remote, &dropped);
            ++d.onceBurst;
        } else if (!d.readList.isEmpty()) {
            d.currentKind = KindRead;
            buildHead(d.readList, frameRead, remote, nullptr);
            d.writeBurst = 0;
            d.onceBurst = 0;
        } else {
            d.writeBurst = 0;
            d.onceBurst = 0;
            info->scanComplete = 1;
        }
        if (!d.sendQueue.isEmpty())
            next = &d.sendQueue.first();
        dropped.address(d.callback, info->callbackContext);
    }
    unlockMutex(d.listMutex);

    dropped.make();
    return next;
}
