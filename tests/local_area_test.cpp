// Accessor byte/bit order, the bounds guard and reply placement in the mirror.
#include <climits>

#include <gtest/gtest.h>

#include "localarea/accessors.h"
#include "localarea/store.h"
#include "support/driver_reset.h"
#include "support/stored_reply.h"

namespace {

// Non-zero bytes of the whole local area outside [from, from+len).
int strayBytes(const void *from, int len)
{
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&PLC_driver.localArea);
    const unsigned char *b = static_cast<const unsigned char *>(from);
    int n = 0;
    for (unsigned i = 0; i < sizeof(LocalArea); ++i)
        n += p[i] != 0 && (p + i < b || p + i >= b + len);
    return n;
}

}  // namespace

TEST(Accessors, BitWriteRuleAndWordOrder)
{
    // Bit reads are checked through GetRegisterData, in the host access tests.
    unsigned char bits[1] = {0xFF};
    QByteArray in("\x01\x02\x00", 3);
    SetBit_unsigned_char(0, bits, &in, 5);  // only 1 sets; missing bytes keep bits
    EXPECT_EQ(0xF9, bits[0]);

    unsigned short sixteen[2] = {0x8001, 0x0002};
    QByteArray b("k", 1);
    GetBit_unsigned_short(b, sixteen, 15, 3);
    EXPECT_EQ(QByteArray("\x01\x00\x01", 3), b);

    unsigned short words[6] = {0, 0, 0, 0x7766, 0x0103, 0x0909};
    QByteArray v("\x34\x12\x78\x56", 4), w, p32("kkkkkkkkkk", 10);
    SetValue_unsigned_short(1, words, &v, 3);
    GetWord_unsigned_short(w, words, 1, 3);
    EXPECT_EQ(QByteArray("\x34\x12\x78\x56\x66\x77", 6), w);
    GetWord_32Bit(p32, words, 1, 5);  // high word first, odd last word dropped, the rest kept
    EXPECT_EQ(QByteArray("\x78\x56\x34\x12\x03\x01\x66\x77kk", 10), p32);
    GetWord_32Bit(w, words, 3, 2);  // one pair
    EXPECT_EQ(QByteArray("\x03\x01\x66\x77", 4), w.left(4));
    SetValue_32Bit(0, words, &p32, 4);
    EXPECT_EQ(0x12345678u, unsigned(words[0]) << 16 | words[1]);
    EXPECT_EQ(0x01037766u, unsigned(words[3]) << 16 | words[2]);

    // Two input bytes set two bits, and the third is left alone.
    sixteen[0] = 0x0006;
    QByteArray two("\x01\x00", 2);
    SetBit_unsigned_short(0, sixteen, &two, 3);
    EXPECT_EQ(0x0005, sixteen[0]);
    // A null buffer reads and writes nothing.
    QByteArray kept("k", 1);
    GetBit_unsigned_char(kept, nullptr, 0, 4);
    GetBit_unsigned_short(kept, nullptr, 0, 4);
    GetWord_unsigned_short(kept, nullptr, 0, 4);
    GetWord_32Bit(kept, nullptr, 0, 4);
    SetBit_unsigned_short(0, nullptr, &two, 2);
    SetBit_unsigned_char(0, nullptr, &two, 2);
    SetValue_32Bit(0, words, nullptr, 2);
    SetValue_32Bit(0, nullptr, &p32, 2);
    SetValue_unsigned_short(0, words, nullptr, 1);
    EXPECT_EQ(QByteArray("k", 1), kept);
    PLC_driver.sendQueue.append(Protocol());
    PLC_driver.sendQueue.first().var.areaType = 2;
    PLC_driver.sendQueue.first().replyDataLength = 1;
    SaveBit_unsigned_char(nullptr, bits);  // a bit frame in flight, no reply
    SaveBit_unsigned_char(&two, nullptr);
    PLC_driver.sendQueue.first().var.areaType = 14;
    PLC_driver.sendQueue.first().replyDataLength = 2;
    QByteArray word("\x43\x21", 2);
    SaveWord_unsigned_short(&word, words);  // a word frame in flight, no header
    SaveWord_unsigned_short(nullptr, words);
    SaveWord_unsigned_short(&word, nullptr);
    EXPECT_EQ(0x4321, words[0]);
    PLC_driver.sendQueue.clear();
}

TEST(Accessors, GuardCutsEveryAreaAtItsEnd)
{
    // Area types -1 to 26: no area, X to FS, no area.
    const int capacities[] = {0,    8384, 8384, 8000, 1024, 576,  576, 32,  2048, 960,
                              128,  96,   96,   32,   32,   8000, 576, 576, 6144, 32,
                              4096, 1000, 2000, 100,  100,  500,  48,  0};
    for (int t = -1; t <= AreaTypeCount; ++t) {
        const int cap = capacities[t + 1];
        int last = 5, all = INT_MAX, huge = INT_MAX, neg = -3, one = 1;
        EXPECT_EQ(cap > 0, clampToArea(t, cap - 1, last) && last == 1) << t;
        EXPECT_EQ(cap > 0, clampToArea(t, 0, all) && all == cap) << t;
        EXPECT_FALSE(clampToArea(t, INT_MAX, huge) || clampToArea(t, 0, neg));
        EXPECT_FALSE(clampToArea(t, -1, one) || clampToArea(t, cap, one));
    }
}

TEST(SaveReplies, MirrorPlacementAndBounds)
{
    LocalArea &area = PLC_driver.localArea;
    resetDriver();
    area.localM[4] = 0x5A;
    storeReply(1, 2, 8, QByteArray("\x05", 1), 10);  // 3 bytes there, the rest kept
    EXPECT_EQ(QByteArray("\x05\xAA\xBB\x5A", 4), QByteArray((char *)area.localM + 1, 4));

    resetDriver();
    storeReply(1, 13, 16, QByteArray("\x11\x22\x33\x44", 4));  // SEM is 4 bytes
    EXPECT_EQ(0x2211, area.localSEM[2] | area.localSEM[3] << 8);
    EXPECT_EQ(0, strayBytes(area.localSEM, 4));
    resetDriver();
    storeReply(1, 25, 46, QByteArray(16, '\x01'));  // FS holds 48 words
    EXPECT_EQ(0x0101, area.localFS[47]);
    EXPECT_EQ(0, strayBytes(area.localFS + 46, 4));

    resetDriver();
    storeReply(1, 2, -1, QByteArray("\x05\xAA", 2));  // M-1 rounds down to M-8
    EXPECT_EQ(0xAA, area.localM[0]);

    // A header length below 0 (the runtime's word) stores only the units
    // whose bytes lie inside the reply.
    resetDriver();
    area.localD[1] = 0x7777;
    Protocol p;
    p.var.areaType = 14;
    p.replyHeaderLength = -3;
    p.replyDataLength = 8;
    PLC_driver.sendQueue.append(p);
    QByteArray six("\x01\x02\x03\x04\x05\x06", 6);
    SaveToLocalDataErea(&six);
    EXPECT_EQ(0x7777, area.localD[1]);
    EXPECT_EQ(0x0203, area.localD[2]);
    EXPECT_EQ(0x0405, area.localD[3]);
    resetDriver();
    storeReply(1, 15, -1, QByteArray("\x12\x34\x56\x78", 4));  // only word 0 inside
    EXPECT_EQ(0x5678, area.localTD[0]);
    storeReply(1, 14, INT_MAX, QByteArray(4, '\x01'), INT_MAX);
    storeReply(1, 30, 0, QByteArray(4, '\x01'));
    EXPECT_EQ(0, strayBytes(area.localTD, 2));
}
