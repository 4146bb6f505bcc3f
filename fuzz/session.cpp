#include "session.h"

#include <cstring>

#include "controller.h"
#include "support/driver_reset.h"

namespace {

const int QueueLimit = 1024;
// Linear repeat checks make queuing cost entries scanned; an input may
// spend this many scans on one call (a full queue costs 1,024 a piece).
const long long ScanBudget = 8000;

void checkCallBack(int, int, int, int status)
{
    if (status != 1 && status != 2)
        fuzzFail("call-back status", status);
}

bool knownCode(int code)
{
    return code == 0 || code == 1 || code == 100 || (code >= 11 && code <= 22) ||
           (code >= 41 && code <= 52) || (code >= 71 && code <= 82) ||
           (code >= 111 && code <= 122) || (code >= 141 && code <= 152) ||
           (code >= 171 && code <= 182);
}

long long floorDiv8(long long v)
{
    return v >= 0 ? v / 8 : -((-v + 7) / 8);
}

// Bytes of an area's block that elements [first, first + count) occupy.
void elementBytes(int areaType, long long first, long long count, long long &lo, long long &hi)
{
    if (count < 0)
        count = 0;
    if (isBitArea(areaType)) {
        lo = floorDiv8(first);
        hi = floorDiv8(first + count + 7);
    } else {
        lo = 2 * first;
        hi = 2 * (first + count);
    }
}

}  // namespace

Session::Session(FuzzInput &in)
    : in_(in),
      info_(resetDriver()),
      nextTag_(1),
      frameRemote_(false),
      bigWrite_(false),
      filled_(false),
      checkMirror_(true)
{
    in.comInfo(*info_);
    SetComInfo(info_);
    RegistCallBackFuncIntf(checkCallBack, 0);
    guard_.snapshot();
    landed_.assign(1, 0);
    fill_ = in.bytes(6);
}

RW_VAR Session::requestFromInput()
{
    FuzzInput &in = in_;
    RW_VAR v;
    v.areaType = in.areaType();
    v.areaName = in.areaName();
    v.addressText = in.addressText(v.areaType);
    v.address = (in.u8() & 1) ? int(in.u16() % 9000) : in.word();
    v.count = in.count();
    v.station = (in.u8() & 7) ? int(in.u8() % 4) : in.word();
    v.ownerType = (in.u8() & 7) ? int(in.u8() % 14) - 1 : in.word();
    v.ownerId = in.u8();
    v.rwMode = (in.u8() & 7) ? int(in.u8() % 2) : in.word();
    v.remoteLink = info_->remoteLink;
    v.linkNo = (in.u8() & 7) ? info_->localLinkNo : in.word();
    v.spare1 = in.word();
    v.value = in.bytes(40);
    return v;
}

void Session::readWriteList(std::vector<Entry> &out)
{
    QList<RW_VAR> &list = PLC_driver.writeList;
    out.clear();
    out.reserve(list.size());
    for (int i = 0; i < list.size(); ++i) {
        const RW_VAR &v = list.at(i);
        int tag = v.spare2;
        if (tag <= 0 || tag >= nextTag_) {
            // Queued by SetRegisterData: tagged here, once.
            tag = nextTag_++;
            list[i].spare2 = tag;
        }
        const Entry e = {tag, v.station, v.areaType, v.address, v.count};
        out.push_back(e);
    }
    if (int(landed_.size()) < nextTag_)
        landed_.resize(nextTag_ + 64, 0);
}

void Session::verifyWrites(const char *what)
{
    // In full while the queue is short; once long, at both ends and in the
    // middle (draining a full queue would otherwise cost its square).
    const QList<RW_VAR> &list = PLC_driver.writeList;
    const int n = list.size();
    if (n != int(writes_.size()))
        fuzzFail(what, n - int(writes_.size()));
    if (n <= 32) {
        for (int i = 0; i < n; ++i)
            if (list.at(i).spare2 != writes_[i].tag)
                fuzzFail(what, i);
        return;
    }
    const int probes[] = {0, 1, n / 3, n / 2, 2 * n / 3, n - 2, n - 1};
    for (int i : probes)
        if (list.at(i).spare2 != writes_[i].tag)
            fuzzFail(what, i);
}

void Session::checkQueued(const char *what, int firstNew)
{
    std::vector<Entry> &now = scratch_;
    readWriteList(now);
    const Ledger &old = writes_;
    if (now.size() < old.size())
        fuzzFail(what, 1);  // queuing removed a write
    for (size_t i = 0; i < old.size(); ++i) {
        if (now[i].tag == old[i].tag)
            continue;
        // Only a newer write to the same place replaces a pending one, and
        // never the head, which may be on the wire.
        const Entry &n = now[i], &o = old[i];
        if (i == 0 || n.tag < firstNew || n.station != o.station || n.areaType != o.areaType ||
            n.address != o.address || n.count != o.count)
            fuzzFail(what, 2);
    }
    for (size_t i = old.size(); i < now.size(); ++i)
        if (now[i].tag < firstNew)
            fuzzFail(what, 3);
    writes_.assign(now);
}

void Session::checkOffered(const RW_VAR &v, int mode)
{
    const QList<RW_VAR> &list = PLC_driver.writeList;
    const size_t before = writes_.size();
    bool pendingEqual = false;  // a pending write to the same place, past the head
    for (size_t i = 1; i < before && mode != 1; ++i) {
        const Entry &o = writes_[i];
        pendingEqual = pendingEqual || (o.station == v.station && o.areaType == v.areaType &&
                                        o.address == v.address && o.count == v.count);
    }
    const Entry e = {v.spare2, v.station, v.areaType, v.address, v.count};
    if (size_t(list.size()) == before + 1) {
        if (list.last().spare2 != v.spare2)
            fuzzFail("queuing changed a pending write", list.size());
        if (pendingEqual && before >= 2)
            fuzzFail("a repeated write was queued twice", int(before));
        writes_.items.push_back(e);
    } else if (size_t(list.size()) == before) {
        int at = -1;
        for (int i = 0; i < list.size() && at < 0; ++i)
            if (list.at(i).spare2 == v.spare2)
                at = i;
        if (at >= 0) {
            const Entry &o = writes_[at];
            if (at == 0 || mode == 1 || o.station != v.station || o.areaType != v.areaType ||
                o.address != v.address || o.count != v.count)
                fuzzFail("a write replaced a pending one it does not equal", at);
            writes_.at(at) = e;
        } else if (mode == 1 || before < size_t(QueueLimit) || pendingEqual) {
            // Dropped only by the full-list rule of the de-duplicating path.
            fuzzFail("a write was lost on queuing", int(before));
        }
    } else {
        fuzzFail("queuing changed the write queue's length by more than one", list.size());
    }
    if (int(landed_.size()) < nextTag_)
        landed_.resize(nextTag_ + 64, 0);
    verifyWrites("queuing changed pending writes");
}

void Session::checkMirror(int areaType, long long loByte, long long hiByte, const char *what)
{
    if (!checkMirror_ || guard_.unchanged())
        return;
    guard_.allow(areaType);
    guard_.check(what);
    int lo, hi;
    if (isArea(areaType) && guard_.changedRange(areaType, lo, hi) && (lo < loByte || hi > hiByte))
        fuzzFail(what, lo);
    guard_.snapshot();
}

void Session::queueRequest(unsigned how)
{
    RW_VAR v = requestFromInput();
    const bool write = how % 5 < 2;
    const int mode = how % 5 == 1 || how % 5 == 3 ? 1 : 0;
    if (write) {
        // A register write frame grows with its count and is checksummed
        // bit by bit: one input may ask for one frame up to the 16-bit
        // quantity and a little past it; the others stay below 300.
        if (v.count > 300 && (bigWrite_ || v.count > 70000))
            v.count = bigWrite_ ? 128 + v.count % 172 : 65535 + v.count % 64;
        bigWrite_ = bigWrite_ || v.count > 300;
        v.spare2 = nextTag_++;
    } else if (how % 5 == 2) {
        // One-off reads are cut into pieces, each checked against the whole
        // queue: keep the scans within the budget.
        const long long size = PLC_driver.onceReadList.size();
        const long long unit = info_->blockUnits > 0 ? info_->blockUnits : 1LL << 40;
        const long long pieces =
            (v.count > 0 ? (long long)v.count : 0) / (v.areaType <= 1 ? 1 : unit) + 1;
        if (size < QueueLimit && pieces * (size + pieces) > ScanBudget)
            v.count = int(unit < 64 ? unit * 32 : 64);
    }
    if (write) {
        AddListWriteVar(&v, mode);
        checkOffered(v, mode);
    } else {
        ::queueRequest(v, how);
    }
    checkMirror(-1, 0, 0, "queuing touched the local area");
}

void Session::fillWrites(int n)
{
    if (filled_)
        return;  // once per input: a thousand frames to drain
    filled_ = true;
    RW_VAR v = requestFromInput();
    if (v.count > 130 || v.count < -130)
        v.count %= 130;  // a thousand frames: each small
    const int firstNew = nextTag_;
    for (int i = 0; i < n; ++i) {
        v.spare2 = nextTag_++;
        AddListWriteVar(&v, 1);
    }
    checkQueued("appending broke the write ledger", firstNew);
    v.address = int(unsigned(v.address) + 1u);  // most often a place no pending write has
    v.spare2 = nextTag_++;
    AddListWriteVar(&v, 0);
    checkOffered(v, 0);
}

void Session::hostAccess(bool write)
{
    FuzzInput &in = in_;
    const int areaType = in.areaType();
    const QString name = in.areaName();
    const QString text = in.addressText(areaType);
    const int station = (in.u8() & 7) ? int(in.u8() % 5) : in.word();
    int count = in.count();
    const long long size = PLC_driver.writeList.size();
    const bool queued = info_->writeMode == 2;
    if (queued && count > 0) {
        // One queued write per bit, or per block of blockUnits words, each
        // checked against the whole queue.
        const long long unit = isBitArea(areaType) || info_->blockUnits < 1 ? 1 : info_->blockUnits;
        const long long writes =
            isBitArea(areaType) || info_->blockUnits > 0 ? (count + unit - 1) / unit : 1;
        if (writes * (size + writes) > ScanBudget)
            count = int(unit * (ScanBudget / (size + 64) + 1));
    }
    if (info_->multiStation && (count > 2048 || count < -2048))
        count %= 2048;  // the per-station store keeps one entry per element
    if (!write) {
        QByteArray out;
        GetRegisterData(name, areaType, text, station, &out, count);
        checkMirror(-1, 0, 0, "a read changed the local area");
        return;
    }
    QByteArray value = in.bytes(80);
    const int firstNew = nextTag_;
    SetRegisterData(name, areaType, text, station, &value, count, int(in.u8()) - 1, in.u8());
    checkQueued("SetRegisterData broke the write ledger", firstNew);
    long long lo = 0, hi = 0;
    if (!info_->multiStation)
        elementBytes(areaType, StringAddressToInt(areaType, text), count, lo, hi);
    checkMirror(areaType, lo, hi, "a write changed the local area outside its range");
}

void Session::rewriteWord()
{
    const int index = in_.u8() % int(sizeof(ComInfo) / sizeof(int));
    reinterpret_cast<int *>(info_)[index] = in_.word();
}

bool Session::exchange(uint8_t fault)
{
    Quorvel_RV_Series &d = PLC_driver;
    const bool fresh = d.sendQueue.isEmpty();
    const bool remoteNow = info_->remoteLink != 0;
    Protocol *p = ComCommunication();

    // Scheduling: a write leaves its queue only when no frame can be built
    // for it, and a frame is built from the head.
    if (size_t(d.writeList.size()) != writes_.size()) {
        if (p || d.currentKind != KindWrite || size_t(d.writeList.size()) + 1 != writes_.size())
            fuzzFail("a write left the queue without a frame", int(writes_.size()));
        // The value still goes to the mirror, as for any write taken up.
        const Entry dropped = writes_.front();
        writes_.pop_front();
        long long lo = 0, hi = 0;
        if (!info_->multiStation)
            elementBytes(dropped.areaType, dropped.address, dropped.count, lo, hi);
        checkMirror(dropped.areaType, lo, hi,
                    "a dropped write changed the mirror outside its range");
    }
    verifyWrites("scheduling reordered the writes");
    if (fresh && p) {
        frameRemote_ = remoteNow;
        if (d.currentKind == KindWrite && (writes_.empty() || p->var.spare2 != writes_[0].tag))
            fuzzFail("a write frame not built from the head of the queue");
    }
    checkFrame(p);
    if (p && fresh && d.currentKind == KindWrite) {
        // Applied to the mirror as the frame is built. (Without a write
        // frame nothing may change: the check after the reply sees that.)
        long long lo = 0, hi = 0;
        if (!info_->multiStation)
            elementBytes(p->var.areaType, p->var.address, p->var.count, lo, hi);
        checkMirror(p->var.areaType, lo, hi, "a write frame changed the mirror outside its range");
    }

    std::vector<QByteArray> arriving;
    arriving.swap(late_);
    QByteArray handed;
    int length = 0;
    bool trusted = false;  // the runtime vouches for what it hands in
    if (!p) {
        if (fault % 10 == 9) {
            // A runtime calling DataCom with nothing in flight.
            const int code = DataCom(&handed, 0)->result;
            if (code != 1)
                fuzzFail("DataCom with nothing in flight", code);
        }
        return false;
    }
    const int kind = d.currentKind;
    const Answer own = controllerAnswer(*p, frameRemote_, fill_);
    QByteArray reply;
    if (fault % 10 != 3) {  // 3: the request is lost on the line
        if (own.landed && kind == KindWrite && p->var.spare2 > 0 && p->var.spare2 < nextTag_)
            landed_[p->var.spare2] = 1;
        if (fault % 10 != 4)  // 4: the reply is lost
            reply = own.reply;
    }
    switch (fault % 10) {
    case 5:  // arrives one frame late
        if (!reply.isEmpty())
            late_.push_back(reply);
        reply.clear();
        break;
    case 6:  // arrives now and once more with the next frame
        if (!reply.isEmpty())
            late_.push_back(reply);
        break;
    case 7:  // cut short
        reply.truncate(in_.u8() % (reply.size() + 1));
        break;
    case 8:  // one byte changed
        if (!reply.isEmpty())
            reply[in_.u8() % reply.size()] = char(reply.at(0) ^ (1 + in_.u8() % 255));
        break;
    default: break;
    }
    if (!reply.isEmpty())
        arriving.push_back(reply);
    bool none = false;  // a null reply pointer
    if (fault % 10 == 9) {
        // The runtime's own mistake: any bytes, any length, unscreened, or
        // no reply record at all.
        handed = in_.bytes(64);
        length = (fault & 0x80) ? int(in_.u8()) - 8 : handed.size();
        none = (fault & 0x40) != 0;
        trusted = true;
    } else if (p->replyLength != 0) {
        for (size_t i = 0; i < arriving.size(); ++i)
            if (screenReply(arriving[i], *p, frameRemote_)) {
                handed = arriving[i];
                break;
            }
        length = handed.size();
        // What the link's reader cannot tell apart: the same bytes, and on a
        // remote link a write's echo of the same station and quantity (the
        // far end places the element by an address map the runtime lacks).
        trusted = handed == own.reply ||
                  (frameRemote_ && handed.size() == 8 && own.reply.size() == 8 &&
                   handed.left(2) == own.reply.left(2) && handed.mid(4, 2) == own.reply.mid(4, 2));
    } else {
        trusted = true;  // nothing to wait for, nothing to tell apart
    }

    const long long retries = info_->retryCount, limit = info_->retryLimit;
    const long long framesDone = info_->framesDone, framesPerRequest = info_->framesPerRequest;
    const bool local = p->var.linkNo == info_->localLinkNo;
    const int owner = p->var.ownerType;
    const int expected = p->replyLength;
    const RW_VAR head = p->var;
    const int code = DataCom(none ? nullptr : &handed, length)->result;
    if (none)
        length = 0;  // a null reply is no reply

    if (!knownCode(code))
        fuzzFail("return code outside the table", code);
    const bool good = code == 1 || code == 100;
    if (good) {
        if (code != (local ? 1 : 100) || (length != expected && expected != -1))
            fuzzFail("success code for this reply", code);
        if (info_->retryCount != retries)
            fuzzFail("a good reply changed the retry count", info_->retryCount);
    } else {
        // The band follows the reply, the code within it the requester.
        const int band = length == 0 && expected != 0           ? 40
                         : length != expected && expected != -1 ? 70
                                                                : 10;
        if (code != 0 &&
            code != (local ? 0 : 100) + band + 1 + (owner >= 0 && owner <= 11 ? owner : 0))
            fuzzFail("error code for this reply", code);
        const long long next = retries + 1;
        if (code == 0 && (next > limit || info_->retryCount != next))
            fuzzFail("retried past the limit", info_->retryCount);
        if (code != 0 && (next <= limit || info_->retryCount != 0))
            fuzzFail("gave up within the limit", info_->retryCount);
    }
    // A good reply finishes the request once its frames are all done; a
    // give-up finishes it too.
    const bool finished = good ? framesDone + 1 >= framesPerRequest : code != 0;
    if (good && !finished && info_->framesDone != framesDone + 1)
        fuzzFail("frame count of a multi-frame request", info_->framesDone);
    checkAfterReply(code, kind, finished, trusted);

    long long lo = 0, hi = 0;
    int type = -1;
    if (good && local && head.rwMode == 0 && !info_->multiStation) {
        // Bit replies carry whole bytes from the byte holding the address.
        type = head.areaType;
        lo = isBitArea(type) ? floorDiv8(head.address) : 2LL * head.address;
        hi = lo + (isBitArea(type) ? 1LL : 2LL) * head.count;
    }
    checkMirror(type, lo, hi, "a reply landed outside its request");
    return true;
}

void Session::checkAfterReply(int code, int kind, bool finished, bool trusted)
{
    const bool good = code == 1 || code == 100;
    if (kind == KindWrite && finished && !writes_.empty()) {
        if (good && !landed_[writes_.front().tag] && !trusted)
            fuzzFail("a write was reported done that never reached the controller",
                     writes_.front().tag);
        writes_.pop_front();
    }
    if (code != 0 && !good) {
        // The station stopped answering: its pending writes go (all of them
        // on a single-station link).
        const int station = PLC_driver.result.station;
        std::vector<Entry> kept;
        for (size_t i = 0; i < writes_.size() && info_->multiStation; ++i)
            if (writes_[i].station != station)
                kept.push_back(writes_[i]);
        writes_.assign(kept);
    }
    verifyWrites("writes left the queue without a rule");
}

void Session::drain()
{
    const ComInfo &c = *info_;
    // Past these the record itself asks for more frames than a run holds
    // (a retry limit of millions, a remote request of millions of frames).
    if (c.retryLimit > 8 || c.retryCount < -8 ||
        (c.remoteLink && (long long)c.framesPerRequest - c.framesDone > 8))
        return;
    late_.clear();
    // Every request finishes or is given up within this many frames: at
    // most retryLimit + 1 tries each, and a cyclic read after every five.
    const long long perRequest = ((c.retryLimit > 0 ? c.retryLimit : 0) + 10) * 3;
    const long long pending = PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
    // A queue taken past its limit is followed for 64 frames only (enough
    // to finish one request however the tries go), which must shorten it.
    const long long rounds = pending > 64 ? 64 : (pending + 4) * perRequest + 32;
    checkMirror_ = false;
    for (long long r = 0; r < rounds; ++r) {
        if (PLC_driver.writeList.isEmpty() && PLC_driver.onceReadList.isEmpty())
            break;
        exchange(0);
    }
    checkMirror_ = true;
    guard_.snapshot();
    const long long left = PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
    if (pending > 64 ? left >= pending : left > 0)
        fuzzFail("queues did not drain on a clean line", int(left));
}

void Session::finish()
{
    checkStore();
}

Session::~Session()
{
    resetDriver();
}
