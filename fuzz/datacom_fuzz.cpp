// Reply stream against whatever frame is in flight. The input first sets
// up the link and queues a few requests of every kind, then is a list of
// replies: nothing, raw bytes with a claimed length of their own, or a
// correct reply with fuzzed data. Each reply goes to DataCom for the frame
// ComCommunication returned.
#include <QSet>

#include "fuzz_input.h"
#include "harness.h"
#include "support/driver_reset.h"

static int callbacks;
static void countCallBack(int, int, int, int status)
{
    if (status != 1 && status != 2)
        fuzzFail("call-back status", status);
    ++callbacks;
}

static RW_VAR request(FuzzInput &in, ComInfo *info)
{
    RW_VAR v;
    v.areaType = in.areaType();
    v.areaName = in.areaName();
    v.addressText = in.addressText(v.areaType);
    v.address = (in.u8() & 1) ? int(in.u16() % 9000) : in.i32();
    v.count = in.count();
    v.station = in.u8() % 4;
    v.ownerType = int(in.u8()) - 2;
    v.ownerId = in.u8();
    v.rwMode = in.u8() % 3;
    v.remoteLink = info->remoteLink;
    v.linkNo = (in.u8() & 7) ? info->localLinkNo : int(in.u8());
    v.value = in.bytes(40);
    return v;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput in(data, size);
    ComInfo *info = resetDriver();
    RegistCallBackFuncIntf(countCallBack, 0);
    callbacks = 0;
    const uint8_t cfg = in.u8();
    info->remoteLink = (cfg & 1) ? 1 : 0;
    info->multiStation = (cfg & 2) ? 1 : 0;
    info->retryLimit = (cfg >> 2) & 3;
    info->localLinkNo = (cfg & 0x10) ? 3 : 0;
    info->framesPerRequest = (cfg & 0x20) ? 2 : 0;
    info->blockUnits = in.u8() % 131;  // 0 included

    AreaGuard guard;
    const int requests = 1 + in.u8() % 6;
    for (int i = 0; i < requests; ++i) {
        RW_VAR v = request(in, info);
        guard.allow(v.areaType);
        queueRequest(v, in.u8());
    }
    // Queuing a write may already apply it locally.
    guard.check("queuing touched another area");

    for (int round = 0; round < 64 && !in.empty(); ++round) {
        Protocol *p = ComCommunication();
        checkFrame(p);
        QByteArray reply;
        int length = 0;
        const uint8_t op = in.u8();
        switch (op % 4) {
        case 0:
            break;  // nothing came back
        case 1:
            reply = in.bytes(64);
            length = (op & 0x80) ? int(in.u8()) - 8 : reply.size();
            break;
        default:
            if (p) {
                reply = goodReply(*p, in.bytes(32));
                length = reply.size();
            }
            break;
        }
        const int before = PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
        RW_VAR *r = DataCom(&reply, length);
        if (r != &PLC_driver.result)
            fuzzFail("DataCom returned another record");
        const int code = r->result;
        const bool known = code == 0 || code == 1 || code == 100 || (code >= 11 && code <= 22) ||
                           (code >= 41 && code <= 52) || (code >= 71 && code <= 82) ||
                           (code >= 111 && code <= 122) || (code >= 141 && code <= 152) ||
                           (code >= 171 && code <= 182);
        if (!known)
            fuzzFail("unknown return code", code);
        if (PLC_driver.writeList.size() + PLC_driver.onceReadList.size() > before)
            fuzzFail("a reply added pending requests");
        if (info->retryCount > info->retryLimit)
            fuzzFail("retry count past the limit", info->retryCount);
        guard.check("a reply touched another area");
        checkStore();
    }
    return 0;
}
