// Accessor byte/bit order, the bounds guard and reply placement in the mirror.
#include <climits>

#include <gtest/gtest.h>

#include "localarea/accessors.h"
#include "localarea/store.h"
#include "support/driver_reset.h"

namespace {

LocalArea &area() { return PLC_driver.localArea; }

// Non-zero bytes of the whole local area outside [from, from+len).
int strayBytes(const void *from, int len)
{
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&area());
    const unsigned char *b = static_cast<const unsigned char *>(from);
    int n = 0;
    for (unsigned i = 0; i < sizeof(LocalArea); ++i)
        n += p[i] != 0 && (p + i < b || p + i >= b + len);
    return n;
}

// Puts a read request for (type, address, data bytes) at the head of the queue.
void answer(int type, int address, QByteArray data, int announced = -1)
{
    Protocol p;
    p.var.areaType = type;
    p.var.address = address;
    p.replyHeaderLength = 3;
    p.replyDataLength = announced < 0 ? data.size() : announced;
    PLC_driver.sendQueue.clear();
    PLC_driver.sendQueue.append(p);
    QByteArray reply = QByteArray("\x01\x03\x00", 3) + data + QByteArray("\xAA\xBB", 2);
    SaveToLocalDataErea(&reply);
}

}  // namespace

TEST(Accessors, BitAndByteOrderAtTheBoundary)
{
    unsigned char bits[4] = {0, 0x80, 0, 0};
    QByteArray out(10, 'z');
    GetBit_unsigned_char(out, bits, 14, 4);  // element 15 is bit 7 of byte 1
    EXPECT_EQ(QByteArray("\x00\x01\x00\x00zzzzzz", 10), out);
    QByteArray in("\x01\x02\x00", 3);
    bits[0] = 0xFF;
    SetBit_unsigned_char(0, bits, &in, 5);  // only 1 sets; missing bytes keep bits
    EXPECT_EQ(0xF9, bits[0]);

    unsigned short words[4] = {0, 0, 0, 0x7777};
    QByteArray v("\x34\x12\x78\x56", 4);
    SetValue_unsigned_short(1, words, &v, 3);
    EXPECT_EQ(0x1234, words[1]);
    EXPECT_EQ(0x5678, words[2]);
    EXPECT_EQ(0x7777, words[3]);
    QByteArray w;
    GetWord_unsigned_short(w, words, 1, 1);
    EXPECT_EQ(QByteArray("\x34\x12", 2), w);

    unsigned short pair[3] = {0x1111, 0x2222, 0x3333};
    QByteArray p32;
    GetWord_32Bit(p32, pair, 0, 3);  // odd last word not copied
    EXPECT_EQ(QByteArray("\x22\x22\x11\x11", 4), p32);
    unsigned short back[2] = {0, 0};
    SetValue_32Bit(0, back, &p32, 2);
    EXPECT_EQ(0x1111, back[0]);
    EXPECT_EQ(0x2222, back[1]);

    unsigned short packed[2] = {0, 0};
    QByteArray one("\x01", 1), got;
    SetBit_unsigned_short(17, packed, &one, 1);
    EXPECT_EQ(0x0002, packed[1]);
    GetBit_unsigned_short(got, packed, 16, 2);
    EXPECT_EQ(QByteArray("\x00\x01", 2), got);
}

TEST(Accessors, GuardCutsEveryAreaAtItsEnd)
{
    for (int t = 0; t < AreaTypeCount; ++t) {
        const int cap = areaCapacity(t);
        int n = 5;
        EXPECT_TRUE(clampToArea(t, cap - 1, n));
        EXPECT_EQ(1, n);
        n = INT_MAX;
        EXPECT_TRUE(clampToArea(t, 0, n));
        EXPECT_EQ(cap, n);
        n = INT_MAX;
        EXPECT_FALSE(clampToArea(t, INT_MAX, n));
        n = 1;
        EXPECT_FALSE(clampToArea(t, -1, n));
        EXPECT_FALSE(clampToArea(t, cap, n));
        n = -3;
        EXPECT_FALSE(clampToArea(t, 0, n));
    }
    int n = 1;
    EXPECT_FALSE(clampToArea(26, 0, n));
    EXPECT_FALSE(clampToArea(-1, 0, n));
}

TEST(SaveReplies, MirrorPlacementAndBounds)
{
    resetDriver();
    answer(14, 100, QByteArray("\x00\x01\x00\x02", 4));
    EXPECT_EQ(1, area().localD[100]);
    EXPECT_EQ(2, area().localD[101]);
    answer(2, 8, QByteArray("\x05\x80", 2));
    EXPECT_EQ(0x05, area().localM[1]);
    EXPECT_EQ(0x80, area().localM[2]);
    area().localM[4] = 0x5A;
    answer(2, 8, QByteArray("\xFF", 1), 10);  // 3 bytes there, the rest kept
    EXPECT_EQ(0xFF, area().localM[1]);
    EXPECT_EQ(0xBB, area().localM[3]);
    EXPECT_EQ(0x5A, area().localM[4]);

    resetDriver();
    answer(13, 16, QByteArray("\x11\x22\x33\x44", 4));  // SEM is 4 bytes
    EXPECT_EQ(0x11, area().localSEM[2]);
    EXPECT_EQ(0x22, area().localSEM[3]);
    EXPECT_EQ(0, strayBytes(area().localSEM, 4));
    resetDriver();
    answer(25, 46, QByteArray(16, '\x01'));  // FS holds 48 words
    EXPECT_EQ(0x0101, area().localFS[47]);
    EXPECT_EQ(0, strayBytes(area().localFS + 46, 4));
    resetDriver();
    answer(15, -1, QByteArray("\x12\x34\x56\x78", 4));  // only word 0 is inside
    EXPECT_EQ(0x5678, area().localTD[0]);
    EXPECT_EQ(0, strayBytes(area().localTD, 2));
    answer(14, INT_MAX, QByteArray(4, '\x01'), INT_MAX);
    answer(30, 0, QByteArray(4, '\x01'));
    EXPECT_EQ(0, strayBytes(area().localTD, 2));
}
