#include "harness.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

void fuzzFail(const char *what, int detail)
{
    std::fprintf(stderr, "fuzz check failed: %s (%d)\n", what, detail);
    std::abort();
}

void countExecution()
{
    static const char *const path = std::getenv("RV_FUZZ_PROGRESS");
    static long long runs = 0;
    static std::time_t last = 0;
    if (!path || (++runs & 255) != 0)
        return;
    const std::time_t now = std::time(nullptr);
    if (now == last)
        return;
    last = now;
    // Written aside and renamed, so that a reader never sees it half done.
    static const std::string aside = std::string(path) + ".new";
    if (FILE *f = std::fopen(aside.c_str(), "w")) {
        std::fprintf(f, "%lld\n", runs);
        std::fclose(f);
        std::rename(aside.c_str(), path);
    }
}

int blockOffset(int areaType)
{
    LocalArea &a = PLC_driver.localArea;
    const unsigned char *base = reinterpret_cast<unsigned char *>(&a);
    const unsigned char *block = isBitArea(areaType)
                                     ? bitBlock(a, areaType)
                                     : reinterpret_cast<unsigned char *>(wordBlock(a, areaType));
    return int(block - base);
}

int blockBytes(int areaType)
{
    return isBitArea(areaType) ? areaCapacity(areaType) / 8 : areaCapacity(areaType) * 2;
}

AreaGuard::AreaGuard()
{
    std::memcpy(&before_, &PLC_driver.localArea, sizeof before_);
    snapshot();
}

void AreaGuard::snapshot()
{
    if (!unchanged())
        std::memcpy(&before_, &PLC_driver.localArea, sizeof before_);
    allowNone();
}

void AreaGuard::allowNone()
{
    for (int t = 0; t < AreaTypeCount; ++t)
        allowed_[t] = false;
}

void AreaGuard::allow(int areaType)
{
    if (isArea(areaType))
        allowed_[areaType] = true;
}

void AreaGuard::allowAll()
{
    for (int t = 0; t < AreaTypeCount; ++t)
        allowed_[t] = true;
}

bool AreaGuard::unchanged() const
{
    return std::memcmp(&before_, &PLC_driver.localArea, sizeof before_) == 0;
}

bool AreaGuard::changedRange(int areaType, int &lo, int &hi) const
{
    // Compared in chunks first: the guard runs after every reply, and the
    // largest block is 16000 bytes.
    const unsigned char *now = reinterpret_cast<const unsigned char *>(&PLC_driver.localArea);
    const unsigned char *old = reinterpret_cast<const unsigned char *>(&before_);
    const int off = blockOffset(areaType), n = blockBytes(areaType);
    now += off;
    old += off;
    const int chunk = 64;
    int i = 0;
    while (i + chunk <= n && std::memcmp(now + i, old + i, chunk) == 0)
        i += chunk;
    while (i < n && now[i] == old[i])
        ++i;
    if (i >= n) {
        lo = hi = -1;
        return false;
    }
    int j = n;
    while (j - chunk >= i && std::memcmp(now + j - chunk, old + j - chunk, chunk) == 0)
        j -= chunk;
    while (j > i && now[j - 1] == old[j - 1])
        --j;
    lo = i;
    hi = j;
    return true;
}

void AreaGuard::check(const char *what) const
{
    if (unchanged())
        return;
    const unsigned char *now = reinterpret_cast<const unsigned char *>(&PLC_driver.localArea);
    const unsigned char *old = reinterpret_cast<const unsigned char *>(&before_);
    for (int t = 0; t < AreaTypeCount; ++t) {
        const int off = blockOffset(t);
        if (!allowed_[t] && std::memcmp(now + off, old + off, blockBytes(t)) != 0)
            fuzzFail(what, t);
    }
}

QByteArray goodReply(const Protocol &p, const QByteArray &fill)
{
    int n = p.replyLength == -1 ? 8 : p.replyLength;
    // Past 32 KiB (twice the largest area, so the storing guard is still
    // reached) no reply comes: building it would be the harness's cost.
    if (n < 4 || n > (1 << 15))
        return QByteArray();
    QByteArray r(n, '\0');
    unsigned char *out = reinterpret_cast<unsigned char *>(r.data());
    const unsigned char *frame = reinterpret_cast<const unsigned char *>(p.frame.constData());
    const int frameSize = p.frame.size();
    for (int i = 0; i < 2 && i < frameSize; ++i)
        out[i] = frame[i];
    const unsigned char fn = frameSize > 1 ? frame[1] : 0;
    if ((fn == 0x01 || fn == 0x03) && n >= 5) {
        out[2] = (unsigned char)(n - 5);
        const unsigned char *f = reinterpret_cast<const unsigned char *>(fill.constData());
        for (int i = 3; i < n - 2; ++i)
            out[i] = fill.isEmpty() ? (unsigned char)(i * 37) : f[(i - 3) % fill.size()];
    } else {
        for (int i = 2; i < n - 2 && i < frameSize; ++i)
            out[i] = frame[i];
    }
    const int crc = crc16(out, n - 2);
    out[n - 2] = (unsigned char)(crc & 0xFF);
    out[n - 1] = (unsigned char)((crc >> 8) & 0xFF);
    return r;
}

void queueRequest(RW_VAR &v, unsigned how)
{
    switch (how % 5) {
    case 0: AddListWriteVar(&v, 0); break;
    case 1: AddListWriteVar(&v, 1); break;
    case 2: AddListOnceReadVar(&v, 0); break;
    case 3: AddListOnceReadVar(&v, 1); break;
    default: AddListReadVar(&v); break;
    }
}

unsigned short crc16(const unsigned char *data, int n)
{
    static unsigned short table[256];
    static bool ready = false;
    if (!ready) {
        for (int i = 0; i < 256; ++i) {
            unsigned short c = (unsigned short)i;
            for (int b = 0; b < 8; ++b)
                c = (c & 1) ? (unsigned short)((c >> 1) ^ 0xA001) : (unsigned short)(c >> 1);
            table[i] = c;
        }
        ready = true;
    }
    unsigned short crc = 0xFFFF;
    for (int i = 0; i < n; ++i)
        crc = (unsigned short)((crc >> 8) ^ table[(crc ^ data[i]) & 0xFF]);
    return crc;
}

void checkFrame(const Protocol *p)
{
    if (!p)
        return;
    if (p->sendLength < 1 || p->sendLength > p->frame.size())
        fuzzFail("frame shorter than its send length", p->sendLength);
    const unsigned char *frame = reinterpret_cast<const unsigned char *>(p->frame.constData());
    if (p->var.station == 0 && p->replyLength != 0)
        fuzzFail("a broadcast waits for a reply", p->replyLength);
    if (p->var.remoteLink == 0 && PLC_driver.comInfo && PLC_driver.comInfo->remoteLink == 0) {
        // A controller frame carries its CRC-16, low byte first, over all
        // it holds while that fits the 16-bit length it is computed over.
        const int n = p->sendLength;
        const unsigned char *f = frame;
        if (n < 4)
            fuzzFail("controller frame too short", n);
        // The reply a read announces: header, count data units, CRC (the
        // count as the request has it, modulo 2^32); a write's echo is 8.
        const unsigned units = f[1] == 0x01 ? 1u : 2u;
        const int expected =
            f[1] == 0x01 || f[1] == 0x03 ? int(units * unsigned(p->var.count) + 5u) : 8;
        if (p->var.station != 0 && p->replyLength != expected)
            fuzzFail("expected reply length", p->replyLength);
        const int crc = crc16(f, (n - 2) & 0xFFFF);
        if (f[n - 2] != (crc & 0xFF) || f[n - 1] != ((crc >> 8) & 0xFF))
            fuzzFail("controller frame with a bad CRC", crc);
    }
}

void checkStore()
{
    const Quorvel_RV_Series &d = PLC_driver;
    if (d.extendIndex.size() != d.extendList.size())
        fuzzFail("store index out of step with the store", d.extendIndex.size());
    for (int i = 0; i < d.extendList.size(); ++i) {
        const EXTENDVAR &e = d.extendList.at(i);
        ExtendKey k = {e.station, e.areaType, e.address};
        if (d.extendIndex.value(k, -1) != i)
            fuzzFail("store index points elsewhere", i);
    }
}
