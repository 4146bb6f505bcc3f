// ReCreatReadVarList with any variable list and any blockUnits, then one
// pass over the cyclic list with a controller that answers everything.
// The rebuilt list must stay bounded and its reads inside their areas.
#include "fuzz_input.h"
#include "harness.h"
#include "support/driver_reset.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput in(data, size);
    ComInfo *info = resetDriver();
    const uint8_t cfg = in.u8();
    info->multiStation = (cfg & 1) ? 1 : 0;
    info->remoteLink = (cfg & 2) ? 1 : 0;
    info->defaultStation = (cfg & 4) ? 0 : 1;
    switch ((cfg >> 3) & 3) {
    case 0: info->blockUnits = in.u8() % 8; break;  // 0 included
    case 1: info->blockUnits = -int(in.u8()); break;
    case 2: info->blockUnits = in.i32(); break;
    default: info->blockUnits = 1 + in.u8() % 125; break;
    }

    AreaGuard guard;
    QList<VarInfo> vars;
    const int n = in.u8() % 48;
    for (int i = 0; i < n; ++i) {
        VarInfo v;
        const int t = in.areaType();
        v.areaType = (unsigned char)t;
        v.station = in.u8() % 4;
        v.areaName = in.areaName();
        v.addressText = in.addressText(v.areaType);
        v.count = in.count();
        if (v.count > 70000 || v.count < -70000)
            v.count %= 70000;  // more than any area holds, yet boundable
        guard.allow(v.areaType);
        vars.append(v);
    }
    ReCreatReadVarList(&vars);

    const int entries = PLC_driver.readList.size();
    if (entries > 200000)
        fuzzFail("read list exploded", entries);
    for (int i = 0; i < entries && i < 4000; ++i) {
        Protocol *p = ComCommunication();
        checkFrame(p);
        if (!p)
            break;
        QByteArray reply = goodReply(*p, QByteArray("\xa5\x5a\x0f", 3));
        DataCom(&reply, reply.size());
        guard.check("a cyclic read touched another area");
    }
    checkStore();
    return 0;
}
