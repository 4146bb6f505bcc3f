// Handling of the reply to the frame in flight: checks, storing, retries,
// finishing the request, call-backs and the return code.
#include <climits>

#include "call_back.h"
#include "checksum.h"
#include "driver_object.h"
#include "frame_in_flight.h"
#include "locks.h"
#include "wrapping.h"
#include "../localarea/store.h"

namespace {

// Outcome numbers of GetDriverReturnValue.
enum {
    LocalGood = 0,
    LocalCheckFailed = 1,
    LocalNoReply = 2,
    LocalWrongLength = 3,
    RemoteGood = 4,
    RemoteCheckFailed = 5,
    RemoteNoReply = 6,
    RemoteWrongLength = 7
};
// Results of CheckGetData.
enum { ReplyBad = 0, ReplyData = 1, ReplyNoData = 2 };

// Owner type of a frame for the error codes; -1 for no frame.
int ownerTypeOf(const Protocol *head)
{
    return head ? head->var.ownerType : -1;
}

// The error band `base` plus the frame's owner type.
int switchError(int base, int ownerType)
{
    return wrappingAdd(base, (ownerType >= 0 && ownerType <= 11) ? 1 + ownerType : 1);
}

int returnValue(int outcome, int ownerType)
{
    switch (outcome) {
    case LocalGood: return 1;
    case LocalCheckFailed: return switchError(10, ownerType);
    case LocalNoReply: return switchError(40, ownerType);
    case LocalWrongLength: return switchError(70, ownerType);
    case RemoteGood: return 100;
    case RemoteCheckFailed: return switchError(110, ownerType);
    case RemoteNoReply: return switchError(140, ownerType);
    case RemoteWrongLength: return switchError(170, ownerType);
    default: return 200;
    }
}

// CheckGetData for the reply to `head`.
int checkReply(const Protocol &head, QByteArray *reply, int length)
{
    if (length == 0 && head.var.station == 0)
        return ReplyNoData;  // broadcast: nothing to check
    // The CRC needs two bytes and every byte it covers must have arrived.
    if (!reply || length < 2 || length > reply->size())
        return ReplyBad;
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(reply->constData());
    // Its count is 16 bits: a longer reply is checked over the low 16 bits
    // of its length, and the CRC is still looked for in its last two bytes.
    const int crc =
        CalCRC(const_cast<unsigned char *>(bytes), static_cast<unsigned short>(length - 2));
    // The low order byte of the CRC comes first on the wire.
    if (bytes[length - 2] != (crc & 0xFF) || bytes[length - 1] != ((crc >> 8) & 0xFF))
        return ReplyBad;
    switch (head.var.rwMode) {
    case 0: return ReplyData;
    case 1: return ReplyNoData;
    default: return ReplyBad;
    }
}

// The checks common to local and remote replies, as a local outcome number;
// remote replies add RemoteGood to it. `check` gets CheckGetData's result.
int classifyReply(const Protocol &head, QByteArray *reply, int length, int *check)
{
    *check = ReplyBad;
    if (length == 0 && head.replyLength != 0)
        return LocalNoReply;
    if (length != head.replyLength && head.replyLength != -1)
        return LocalWrongLength;
    *check = checkReply(head, reply, length);
    return *check == ReplyBad ? LocalCheckFailed : LocalGood;
}

// Checks the reply to `head` and stores its data in the local area.
int dealLocal(const Protocol &head, const ComInfo &info, QByteArray *reply, int length)
{
    int check;
    const int outcome = classifyReply(head, reply, length, &check);
    if (check == ReplyData) {
        MutexHold hold(PLC_driver.areaMutex);
        saveReply(head, info, reply);
    }
    return returnValue(outcome, head.var.ownerType);
}

// Remote replies are checked alike but never stored.
int dealRemote(const Protocol &head, QByteArray *reply, int length)
{
    int check;
    return returnValue(classifyReply(head, reply, length, &check) + RemoteGood, head.var.ownerType);
}

// Removes from `list` every request of `station`.
void dropStation(QList<RW_VAR> &list, int station)
{
    for (int i = list.size() - 1; i >= 0; --i)
        if (list.at(i).station == station)
            list.removeAt(i);
}

// Finishes the request in flight by the list it came from; a one-off read
// may owe its requester a call-back.
void finishRequest(bool local, OwedCallBack *call)
{
    Quorvel_RV_Series &d = PLC_driver;
    switch (d.currentKind) {
    case KindWrite:
        if (!d.writeList.isEmpty()) {
            passRetValue(d.writeList.first(), d.result);
            d.writeList.removeFirst();
        }
        break;
    case KindOnceRead:
        if (!d.onceReadList.isEmpty()) {
            const RW_VAR &once = d.onceReadList.first();
            bool repeated = false;
            for (int i = 1; i < d.onceReadList.size() && !repeated; ++i)
                repeated = d.onceReadList.at(i).ownerType == once.ownerType &&
                           d.onceReadList.at(i).ownerId == once.ownerId;
            // A requester with another read still pending hears once, at the end.
            if (local && !repeated)
                call->owe(once, commErrorSet() ? 2 : 1);
            passRetValue(once, d.result);
            d.onceReadList.removeFirst();
        }
        break;
    case KindRead:
        if (!d.readList.isEmpty()) {
            passRetValue(d.readList.first(), d.result);
            d.readList.append(d.readList.takeFirst());
        }
        break;
    default: break;
    }
}

}  // namespace

// The exported functions of the runtime's layout take no frame: they answer
// for the frame in flight.

int GetDriverReturnValue(int outcome)
{
    return returnValue(outcome, ownerTypeOf(frameInFlight()));
}

int SwitchErrorReturn(int base)
{
    return switchError(base, ownerTypeOf(frameInFlight()));
}

int CheckGetData(QByteArray *reply, int length)
{
    const Protocol *head = frameInFlight();
    return head ? checkReply(*head, reply, length) : ReplyBad;
}

int DealDataOfLocalArea(QByteArray *reply, int length)
{
    const Protocol *head = frameInFlight();
    return head ? dealLocal(*head, activeComInfo(), reply, length)
                : returnValue(LocalCheckFailed, -1);
}

int DealDataOfRemoteArea(QByteArray *reply, int length)
{
    const Protocol *head = frameInFlight();
    return head ? dealRemote(*head, reply, length) : returnValue(RemoteCheckFailed, -1);
}

extern "C" RW_VAR *DataCom(QByteArray *reply, int length)
{
    Quorvel_RV_Series &d = PLC_driver;
    OwedCallBack call;

    // listMutex is held from here to the end: the runtime's other threads
    // rebuild the cyclic list and reset the scan counters under it.
    lockMutex(d.listMutex);
    d.result.result = 1;
    if (!reply)
        length = 0;  // a missing reply is no reply
    ComInfo *info = d.comInfo;
    if (d.sendQueue.isEmpty() || !info) {
        unlockMutex(d.listMutex);
        return &d.result;
    }
    // The frame answered, looked up once; it stays at the head until the
    // checks and the storing are done.
    const Protocol &head = d.sendQueue.first();
    const bool local = head.var.linkNo == info->localLinkNo;
    const int code =
        local ? dealLocal(head, *info, reply, length) : dealRemote(head, reply, length);

    if (code != 1 && code != 100) {
        d.scanCounter = 0;
        setCommError(true);
        info->scanComplete = 0;
        // Counted wide: at the top of the int range a failure is past any
        // limit and gives up, instead of wrapping round to retry for ever.
        const long long failures = info->retryCount + 1LL;
        if (failures <= info->retryLimit) {
            info->retryCount = int(failures);
            d.result.result = 0;  // the same frame goes out again
            unlockMutex(d.listMutex);
            return &d.result;
        }
        info->retryCount = 0;
        d.sendQueue.clear();
    } else {
        setCommError(false);
        d.sendQueue.removeFirst();
        // Held at the top of the int range: every frame after it finishes
        // the request, which a wrap to the bottom would never do.
        if (info->framesDone < INT_MAX)
            ++info->framesDone;
        if (info->framesDone < info->framesPerRequest) {
            d.result.result = code;  // the request needs further frames
            unlockMutex(d.listMutex);
            return &d.result;
        }
        if (info->scanComplete == 0 && local && ++d.scanCounter > d.readList.size()) {
            d.scanCounter = 0;
            info->scanComplete = 1;
        }
    }

    finishRequest(local, &call);
    if (commErrorSet()) {
        // The station stopped answering: its pending work goes.
        if (info->multiStation == 0) {
            d.onceReadList.clear();
            d.writeList.clear();
        } else {
            dropStation(d.onceReadList, d.result.station);
            dropStation(d.writeList, d.result.station);
        }
    }
    d.result.result = code;
    call.address(d.callback, info->callbackContext);
    unlockMutex(d.listMutex);

    call.make();
    return &d.result;
}
