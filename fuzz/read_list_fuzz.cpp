// ReCreatReadVarList with any variable list and any blockUnits, then one
// pass over the cyclic list with a controller that answers everything.
// The rebuilt list must stay bounded and its reads inside their areas.
#include "fuzz_input.h"
#include "harness.h"
#include "support/driver_reset.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    countExecution();
    FuzzInput in(data, size);
    ComInfo *info = resetDriver();
    in.comInfo(*info);
    SetComInfo(info);
    const uint8_t cfg = in.u8();
    switch ((cfg >> 3) & 3) {
    case 0: info->blockUnits = in.u8() % 8; break;  // 0 included
    case 1: info->blockUnits = -int(in.u8()); break;
    case 2: info->blockUnits = in.i32(); break;
    default: info->blockUnits = 1 + in.u8() % 125; break;
    }

    // Counts past what any area holds, yet no more than 64 pieces a
    // variable (a count and a block size of the same sign cut into count /
    // size pieces, negative ones too): a list of tens of thousands of
    // requests costs the rebuild milliseconds, and the fuzzer would spend
    // its time there, not on the branches (a cyclic list that long is a
    // runtime's own choice).
    const long long units = info->blockUnits < 0 ? -(long long)info->blockUnits : info->blockUnits;
    const int pieceBound = units > 0 && units < 1094 ? int(64 * units) : 70000;
    AreaGuard guard;
    QList<VarInfo> vars;
    const int n = in.u8() % 32;
    for (int i = 0; i < n; ++i) {
        VarInfo v;
        const int t = in.areaType();
        v.areaType = (unsigned char)t;
        v.station = in.u8() % 4;
        v.areaName = in.areaName();
        v.addressText = in.addressText(v.areaType);
        v.count = in.count();
        if (v.count > pieceBound || v.count < -pieceBound)
            v.count %= pieceBound;
        guard.allow(v.areaType);
        vars.append(v);
    }
    ReCreatReadVarList(&vars);

    // Variables are no longer cut at their area's end, but one run of them
    // is cut into at most 65,536 pieces; with several stations a variable
    // is read by the grouping pass and by the per-variable pass.
    const int entries = PLC_driver.readList.size();
    if (entries > 2 * 65537LL * (n > 0 ? n : 1))
        fuzzFail("read list exploded", entries);
    AreaGuard one;
    for (int i = 0; i < entries && i < 48; ++i) {
        Protocol *p = ComCommunication();
        checkFrame(p);
        if (!p)
            break;
        const RW_VAR req = p->var;
        QByteArray reply = goodReply(*p, QByteArray("\xa5\x5a\x0f", 3));
        DataCom(&reply, reply.size());
        if (one.unchanged())
            continue;
        one.allowNone();
        one.allow(req.areaType);
        one.check("a cyclic read touched another area");
        // A reply fills the elements its request named and nothing else
        // (bit requests: whole bytes from a multiple of 8; word requests:
        // registers).
        int lo, hi;
        if (isArea(req.areaType) && one.changedRange(req.areaType, lo, hi)) {
            if (info->multiStation)
                fuzzFail("per-station reply changed the shared mirror", req.areaType);
            const long long first = isBitArea(req.areaType) ? req.address / 8 : 2LL * req.address;
            const long long end = first + (isBitArea(req.areaType) ? 1LL : 2LL) * req.count;
            if (lo < first || hi > end)
                fuzzFail("a reply landed outside its request", lo);
        }
        one.snapshot();
    }
    guard.check("the cyclic pass touched an area no variable named");
    checkStore();
    resetDriver();  // nothing left over that looks like a leak
    return 0;
}
