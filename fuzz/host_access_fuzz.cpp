// SetRegisterData and GetRegisterData as a runtime with bugs of its own
// would call them: any area name, type, address text, station, count and
// value size, with every word of the record from the input (any int), in
// both storage modes and both write modes.
#include "fuzz_input.h"
#include "harness.h"
#include "support/driver_reset.h"

// Byte range [lo, hi) of a block that elements [start, start+count) of an
// area may touch, cut to the block.
static void elementBytes(int areaType, int start, int count, int &lo, int &hi)
{
    const long long first = start, last = (long long)start + count;  // elements
    long long l = isBitArea(areaType) ? first / 8 : first * 2;
    long long h = isBitArea(areaType) ? (last + 7) / 8 : last * 2;
    const long long n = blockBytes(areaType);
    lo = int(l < 0 ? 0 : (l > n ? n : l));
    hi = int(h < 0 ? 0 : (h > n ? n : h));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    countExecution();
    FuzzInput in(data, size);
    ComInfo *info = resetDriver();
    in.comInfo(*info);
    SetComInfo(info);
    AreaGuard guard;

    for (int op = 0; op < 24 && !in.empty(); ++op) {
        const uint8_t how = in.u8();
        // Storage and write mode flip between calls, as a runtime may.
        if (how & 0x10)
            info->multiStation = (how & 2) ? in.word() : 0;
        if (how & 0x20)
            info->writeMode = (how & 4) ? 2 : in.word();
        const int areaType = in.areaType();
        const QString name = in.areaName();
        const QString text = in.addressText(areaType);
        const int station = in.u8() % 5;
        int count = in.count();
        // The per-station store keeps one entry per element read or
        // written: a count in the millions is a runtime's bug that the
        // store would honour, so the fuzzer keeps to what one call of a
        // real panel could mean. The mirror clamps, so any count goes.
        if (info->multiStation && (count > 1024 || count < -1024))
            count %= 1024;
        // Queued bit writes go one element at a time through the write
        // queue's linear repeat check: a whole area in one call is slow by
        // design, so the scans an input may cause are bounded.
        const long long queued = PLC_driver.writeList.size();
        if (info->writeMode == 2 && count > 64 && count * (queued + count) > 40000)
            count = count % 64 + 1;
        const int parsed = StringAddressToInt(areaType, text);
        guard.snapshot();
        const int pending = PLC_driver.writeList.size();

        if (how & 1) {
            QByteArray value = in.bytes(80);
            const int r = SetRegisterData(name, areaType, text, station, &value, count,
                                          int(in.u8()) - 1, in.u8());
            if (parsed < 0 && (r != 0 || PLC_driver.writeList.size() != pending))
                fuzzFail("negative address was not refused", r);
            if (guard.unchanged())
                continue;
            guard.allow(areaType);
            guard.check("a write touched another area");
            if (!info->multiStation && isArea(areaType)) {
                int lo, hi, wlo, whi;
                if (guard.changedRange(areaType, lo, hi)) {
                    // Word writes queue whole blocks of blockUnits words.
                    int span = count;
                    if (info->writeMode == 2 && isWordArea(areaType) && info->blockUnits > count)
                        span = info->blockUnits;
                    elementBytes(areaType, parsed, span, wlo, whi);
                    if (lo < wlo || hi > whi)
                        fuzzFail("a write changed elements outside its range", lo);
                }
            }
        } else {
            QByteArray out("\x5a\x5a\x5a", 3);
            const int r = GetRegisterData(name, areaType, text, station, &out, count);
            if (r != 0 && r != 1)
                fuzzFail("GetRegisterData result", r);
            if (r == 0 && out != QByteArray("\x5a\x5a\x5a", 3))
                fuzzFail("refused read touched the output");
            if (out.size() > 3 && out.size() > 2LL * (count > 0 ? count : 0) + 3)
                fuzzFail("read returned more than asked", out.size());
            guard.check("a read changed the local area");
        }
    }
    checkStore();
    resetDriver();  // nothing left over that looks like a leak
    return 0;
}
