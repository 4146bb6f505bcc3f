// Whole frames as they go on the line, and the reply each one waits for.
#include <gtest/gtest.h>

#include <string>

#include "driver/driver_object.h"
#include "driver/frame_builders.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"

namespace {

enum { X = 0, Y = 1, M = 2, D = 14, FS = 25 };
typedef void (*Builder)(RW_VAR *);

// Runs one builder on an empty queue; returns the queued frame, or an
// empty Protocol when nothing was queued.
Protocol build(Builder builder, RW_VAR v)
{
    PLC_driver.sendQueue.clear();
    builder(&v);
    EXPECT_LE(PLC_driver.sendQueue.size(), 1);
    return PLC_driver.sendQueue.isEmpty() ? Protocol() : PLC_driver.sendQueue.first();
}

QByteArray hex(const char *h)
{
    return QByteArray::fromHex(h);
}

RW_VAR remote(RW_VAR v, int ownerType, int rwMode = 0, int spare2 = 0)
{
    v.ownerType = ownerType;
    v.rwMode = rwMode;
    v.spare2 = spare2;
    return v;
}

}  // namespace

TEST(Frames, WorkedFramesAndTheReplyEachAwaits)
{
    resetDriver();
    // The reply awaited as "length/header/data", then: `at` < 0, the whole
    // frame, its last group the check (Modbus CRC low byte first, or the
    // remote frame's sum); else the bytes from `at` on.
    const struct {
        Builder build;
        RW_VAR v;
        const char *reply;
        int at;
        const char *bytes;
    } cases[] = {
        {ReadRegister, request(M, 0, 2), "7/3/2", -1, "010100000010 3DC6"},
        {ReadBool, request(M, 0, 2), "7/3/2", -1, "010100000010 3DC6"},
        {ReadAnalog, request(D, 100, 10), "25/3/20", -1, "01030064000A 8412"},
        {ReadRegister, request(D, 100, 10), "25/3/20", -1, "01030064000A 8412"},
        {ReadRegister, request(M, 0, 0), "5/3/0", 4, "0000"},
        {ReadRegister, request(D, 0, 1, 257), "7/3/2", 0, "01"},  // station cut to its byte
        {ReadRegister, request(D, 0, 4, 0), "0/0/0", 0, "00"},    // broadcast: no reply
        // Past what one reply can carry the frame still goes, its quantity in
        // 16 bits, while the reply is awaited for the whole count.
        {ReadRegister, request(M, 0, 8192), "8197/3/8192", -1, "010100000000 3C0A"},
        {ReadRegister, request(D, 0, 0x10000), "131077/3/131072", 4, "0000"},
        {ReadRegister, request(D, 0, -1), "3/3/-2", 4, "FFFF"},
        {ReadRegister, request(X, 0, 0x7FFFFFFF), "-2147483644/3/2147483647", 4, "FFF8"},
        {Remote_ReadVar, request(D, 0, 0x10005), "131087/3/131082", 11, "0005"},
        {Remote_ReadVar, request(D, 0, -1), "3/3/-2", 11, "FFFF"},
        {WriteRegister, request(Y, 0, 1, 1, hex("01")), "8/0/0", -1, "01056000FF00 923A"},
        {WriteRegister, request(M, 10, 1, 1, hex("FF")), "8/0/0", 4, "0000"},  // only 1 is on
        {WriteRegister, request(D, 0, 1, 1, hex("3412")), "8/0/0", -1, "010600001234 84BD"},
        {WriteRegister, request(D, 10, 2, 1, hex("01020304")), "8/0/0", -1,
         "0110000A000204 02010403 6169"},
        {WriteRegister, request(D, 0, 0, 1), "8/0/0", -1, "01100000000000 0950"},
        // Quantity cut to 16 bits, byte count to 8; the CRC covers the low
        // 16 bits of the length (9 bytes here) and ends the 131,083 bytes.
        {WriteRegister, request(D, 0, 0x10001, 1, QByteArray(4, char(0x5A))), "8/0/0", 2,
         "0000 0001 02 5A5A5A5A"},
        {WriteAnalog, request(D, 0, 0x10001, 1, QByteArray(4, char(0x5A))), "8/0/0", 131081,
         "1CCB"},
        {WriteRegister, request(D, 20, 1, 0, hex("CDAB")), "0/0/0", 0, "00"},
        // Short values are padded with zeros, never read past their end.
        {WriteAnalog, request(D, 0, 1, 1, hex("7F")), "8/0/0", 4, "007F"},
        {WriteAnalog, request(D, 0, 3, 1, hex("112233")), "8/0/0", 7, "221100330000"},
        {Remote_ReadVar, remote(request(D, 100, 10), 2), "25/3/20", -1,
         "160200000100 0E00000064000A 0000000000000000 95"},
        {Remote_ReadVar, request(X, 4096, 1), "6/3/1", 7, "00001000"},  // element, not coil
        {Remote_ReadVar, request(M, 0, 2), "7/3/2", 5, "0002"},
        {Remote_ReadVar, request(40, -2, 3), "11/3/6", 5, "0028FFFFFFFE"},  // no area: words
        {Remote_WriteVar, remote(request(D, 0, 1, 1, hex("3412")), 0, 1, 0x01020304), "8/0/0", -1,
         "180001000100 0E000000000001 0000000001020304 3412 79"},
        // Past 233 value bytes the length byte keeps the low 8 bits (322 here).
        {Remote_WriteVar, request(D, 300, 1, 1, QByteArray(300, '\1')), "8/0/0", 0, "42"},
    };
    for (const auto &c : cases) {
        const Protocol p = build(c.build, c.v);
        const QByteArray want = hex(c.bytes);
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(c.at < 0 ? p.frame : p.frame.mid(c.at, want.size()), want);
        EXPECT_EQ(p.sendLength, p.frame.size());
        EXPECT_EQ(std::to_string(p.replyLength) + "/" + std::to_string(p.replyHeaderLength) + "/" +
                      std::to_string(p.replyDataLength),
                  c.reply);
    }
    // Register writes reach the mirror, a broadcast at once, and so do
    // remote writes of any length.
    EXPECT_EQ(PLC_driver.localArea.localD[11], 0x0403);
    EXPECT_EQ(PLC_driver.localArea.localD[20], 0xABCD);
    EXPECT_EQ(PLC_driver.localArea.localD[1], 0x5A5A);
    EXPECT_EQ(PLC_driver.localArea.localD[300], 0x0101);
    EXPECT_EQ(build(Remote_WriteVar, request(D, 3, 1, 1, QByteArray(300, 1))).sendLength, 322);
}

TEST(Frames, OnlyFramesThatGoResetTheCountersAndWritesReachTheMirror)
{
    ComInfo *info = resetDriver();
    info->framesDone = 9;
    for (RW_VAR v : {request(26, 0, 1), request(-1, 0, 1)})
        EXPECT_TRUE(build(ReadRegister, v).frame.isEmpty()) << v.areaType;
    // No frame for a negative register count, nor for one the panel could
    // not hold; the mirror still takes what it can.
    for (int count : {-1, (1 << 22) + 1})
        EXPECT_TRUE(build(WriteRegister, request(D, 40, count, 1, hex("FFFF"))).frame.isEmpty())
            << count;
    EXPECT_TRUE(build(WriteRegister, request(26, 0, 1, 1, hex("0100"))).frame.isEmpty());
    EXPECT_EQ(info->framesDone, 9);
    EXPECT_EQ(PLC_driver.localArea.localD[40], 0xFFFF);

    info->framesPerRequest = 3;
    build(ReadRegister, request(M, 0, 2));
    EXPECT_TRUE(info->framesDone == 0 && info->framesPerRequest == 1);

    // Link down: a register write still goes and leaves the mirror to the
    // runtime; a remote write updates it and keeps the frame counters.
    setCommError(true);  // cleared by resetDriver
    EXPECT_EQ(build(WriteRegister, request(D, 30, 1, 1, hex("0100"))).sendLength, 8);
    info->framesDone = 4;
    info->framesPerRequest = 6;
    build(Remote_WriteVar, request(D, 50, 1, 1, hex("3412")));
    EXPECT_EQ(PLC_driver.localArea.localD[30], 0);
    EXPECT_EQ(PLC_driver.localArea.localD[50], 0x1234);
    EXPECT_TRUE(info->framesDone == 4 && info->framesPerRequest == 6);

    PLC_driver.comInfo = nullptr;  // no record installed: still builds
    EXPECT_EQ(build(ReadRegister, request(D, 0, 1)).sendLength, 8);
    resetDriver();
}
