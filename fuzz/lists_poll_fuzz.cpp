// Requests of any shape through the three queuing entry points, then the
// polling loop until it has nothing left: a controller that sometimes
// fails, then one that always answers. The queues must drain, the loop
// must not stall, and only the areas named by requests may change.
#include "fuzz_input.h"
#include "harness.h"
#include "support/driver_reset.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput in(data, size);
    ComInfo *info = resetDriver();
    const uint8_t cfg = in.u8();
    info->remoteLink = (cfg & 1) ? 1 : 0;
    info->multiStation = (cfg & 2) ? 1 : 0;
    info->retryLimit = (cfg >> 2) & 3;
    info->defaultStation = (cfg & 0x10) ? 0 : 1;
    info->blockUnits = in.u8() % 130;

    AreaGuard guard;
    const int requests = in.u8() % 12;
    for (int i = 0; i < requests; ++i) {
        RW_VAR v;
        v.areaType = in.areaType();
        v.areaName = in.areaName();
        v.addressText = in.addressText(v.areaType);
        v.address = (in.u8() & 1) ? int(in.u16() % 9000) : in.i32();
        v.count = in.count();
        // Frames and replies grow with the count (a raw request is framed
        // as it stands) and every one is checksummed bit by bit; the drain
        // below stays bounded in time only with counts a frame can carry.
        if (v.count > 4096 || v.count < -4096)
            v.count %= 4096;
        v.station = in.u8() % 4;
        v.ownerType = in.u8() % 14;
        v.ownerId = in.u8();
        v.rwMode = in.u8() % 2;
        v.remoteLink = info->remoteLink;
        v.linkNo = info->localLinkNo;
        v.value = in.bytes(32);
        guard.allow(v.areaType);
        queueRequest(v, in.u8());
    }
    if (PLC_driver.onceReadList.size() > 4096)
        return 0;  // more pieces than a bounded run can drain
    guard.check("queuing touched another area");

    // A flaky controller for as long as the input lasts.
    for (int round = 0; round < 200 && !in.empty(); ++round) {
        Protocol *p = ComCommunication();
        checkFrame(p);
        QByteArray reply;
        if (p && (in.u8() & 3))
            reply = goodReply(*p, in.bytes(8));
        DataCom(&reply, reply.size());
        guard.check("polling touched another area");
    }

    // Then a healthy one: every write and one-off read finishes or is
    // given up within a bounded number of frames.
    const int pending = PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
    const int limit = (pending + 2) * (info->retryLimit + 2) * 6 + PLC_driver.readList.size();
    for (int round = 0; round < limit; ++round) {
        if (PLC_driver.writeList.isEmpty() && PLC_driver.onceReadList.isEmpty())
            break;
        Protocol *p = ComCommunication();
        checkFrame(p);
        QByteArray reply = p ? goodReply(*p, QByteArray("\x11\x22", 2)) : QByteArray();
        DataCom(&reply, reply.size());
    }
    if (!PLC_driver.writeList.isEmpty() || !PLC_driver.onceReadList.isEmpty())
        fuzzFail("queues did not drain with a healthy controller",
                 PLC_driver.writeList.size() * 10000 + PLC_driver.onceReadList.size());
    guard.check("polling touched another area");
    checkStore();
    return 0;
}
