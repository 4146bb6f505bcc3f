// Whole frames as they go on the line, and the reply each one waits for.
#include <gtest/gtest.h>

#include "driver/driver_object.h"
#include "frames/frames.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"

namespace {

enum { X = 0, Y = 1, M = 2, D = 14, FS = 25 };

class Frames : public ::testing::Test {
protected:
    void SetUp() override { info = resetDriver(); }
    void TearDown() override { resetDriver(); }

    // Runs one builder on an empty queue; returns the queued frame, or
    // an empty Protocol when nothing was queued.
    Protocol build(void (*builder)(RW_VAR *), RW_VAR v)
    {
        PLC_driver.sendQueue.clear();
        builder(&v);
        EXPECT_LE(PLC_driver.sendQueue.size(), 1);
        return PLC_driver.sendQueue.isEmpty() ? Protocol() : PLC_driver.sendQueue.first();
    }

    ComInfo *info = nullptr;
};

QByteArray hex(const char *h) { return QByteArray::fromHex(h); }

// Expected reply as "length/header/data".
QString shape(const Protocol &p)
{
    return QString("%1/%2/%3").arg(p.replyLength).arg(p.replyHeaderLength).arg(p.replyDataLength);
}

}  // namespace

TEST_F(Frames, ReadsMatchTheWorkedFramesAndReplyShapes)
{
    info->framesDone = 7;
    info->framesPerRequest = 3;
    Protocol p = build(ReadRegister, request(M, 0, 2));
    EXPECT_EQ(p.frame, hex("010100000010" "3DC6"));
    EXPECT_EQ(shape(p), "7/3/2");
    EXPECT_EQ(info->framesDone, 0);
    EXPECT_EQ(info->framesPerRequest, 1);

    p = build(ReadRegister, request(D, 100, 10));
    EXPECT_EQ(p.frame, hex("01030064000A" "8412"));
    EXPECT_EQ(shape(p), "25/3/20");

    EXPECT_EQ(build(ReadRegister, request(M, 0, 32)).frame.mid(4, 2), hex("0100"));
    EXPECT_EQ(build(ReadRegister, request(M, 0, 0)).replyLength, 5);
    EXPECT_EQ(build(ReadRegister, request(D, 0, 1, 257)).frame.at(0), char(1));

    EXPECT_EQ(shape(build(ReadRegister, request(D, 0, 4, 0))), "0/0/0");
}

TEST_F(Frames, ReadsRefuseOnlyWhatNoFrameCanAskFor)
{
    // Past what one reply can carry the frame still goes, its quantity in
    // 16 bits: the controller answers with an exception the runtime sees.
    Protocol p = build(ReadRegister, request(M, 0, 256));
    EXPECT_EQ(p.frame.mid(4, 2), hex("0800"));
    EXPECT_EQ(p.replyLength, 261);
    p = build(ReadRegister, request(D, 0, 300));
    EXPECT_EQ(p.frame.mid(4, 2), hex("012C"));
    EXPECT_EQ(p.replyLength, 605);
    EXPECT_EQ(build(ReadRegister, request(D, 0, 0xFFFF)).replyDataLength, 0x1FFFE);

    info->framesDone = 9;
    for (RW_VAR v : {request(M, 0, 8192), request(D, 0, 0x10000), request(D, 0, -1),
                     request(X, 0, 0x7FFFFFFF), request(26, 0, 1), request(-1, 0, 1)}) {
        EXPECT_TRUE(build(ReadRegister, v).frame.isEmpty());
    }
    EXPECT_EQ(info->framesDone, 9);  // counters untouched when nothing is queued

    PLC_driver.comInfo = nullptr;  // no record installed: still builds
    EXPECT_EQ(build(ReadRegister, request(D, 0, 1)).sendLength, 8);
}

TEST_F(Frames, WritesMatchTheWorkedFramesAndUpdateTheMirror)
{
    Protocol p = build(WriteRegister, request(Y, 0, 1, 1, hex("01")));
    EXPECT_EQ(p.frame, hex("01056000FF00" "923A"));
    EXPECT_EQ(shape(p), "8/0/0");

    EXPECT_EQ(build(WriteRegister, request(M, 10, 1, 1, hex("FF"))).frame.mid(4, 2), hex("0000"));

    p = build(WriteRegister, request(D, 0, 1, 1, hex("3412")));
    EXPECT_EQ(p.frame, hex("010600001234" "84BD"));
    EXPECT_EQ(PLC_driver.localArea.localD[0], 0x1234);

    p = build(WriteRegister, request(D, 10, 2, 1, hex("01020304")));
    EXPECT_EQ(p.frame, hex("0110000A000204" "02010403" "6169"));
    EXPECT_EQ(p.sendLength, 13);
    EXPECT_EQ(PLC_driver.localArea.localD[11], 0x0403);

    p = build(WriteRegister, request(D, 0, 0, 1));
    EXPECT_EQ(p.frame.left(7), hex("01100000000000"));
    EXPECT_EQ(p.sendLength, 9);

    // Broadcast: no reply awaited, the mirror is updated at once.
    p = build(WriteRegister, request(D, 20, 1, 0, hex("CDAB")));
    EXPECT_EQ(p.replyLength, 0);
    EXPECT_EQ(PLC_driver.localArea.localD[20], 0xABCD);

    // Link down: the frame still goes, the mirror is left to the runtime.
    setCommError(true);
    EXPECT_EQ(build(WriteRegister, request(D, 30, 1, 1, hex("0100"))).sendLength, 8);
    EXPECT_EQ(PLC_driver.localArea.localD[30], 0);
    setCommError(false);
}

TEST_F(Frames, WritesPadShortValuesAndRefuseUnframeableCounts)
{
    // Short values are padded with zeros, never read past their end.
    EXPECT_EQ(build(WriteAnalog, request(D, 0, 1, 1, hex("7F"))).frame.mid(4, 2), hex("007F"));
    Protocol p = build(WriteAnalog, request(D, 0, 3, 1, hex("112233")));
    EXPECT_EQ(p.frame.mid(7, 6), hex("221100330000"));

    // 127 registers is the most a byte count can announce; past it the
    // byte count wraps and the frame still carries every register.
    p = build(WriteAnalog, request(FS, 0, 127, 1, QByteArray(254, char(0x5A))));
    EXPECT_EQ(p.sendLength, 9 + 254);
    EXPECT_EQ(p.frame.mid(2, 5), hex("F4C0007FFE"));
    p = build(WriteAnalog, request(D, 0, 128, 1, QByteArray(256, char(0x5A))));
    EXPECT_EQ(p.sendLength, 9 + 256);
    EXPECT_EQ(p.frame.mid(4, 3), hex("008000"));

    for (int count : {32765, -1, -2, 0x7FFFFFFF}) {
        RW_VAR v = request(D, 40, count, 1, hex("FFFF"));
        EXPECT_TRUE(build(WriteRegister, v).frame.isEmpty()) << count;
    }
    EXPECT_EQ(PLC_driver.localArea.localD[40], 0);  // a refused write leaves the mirror alone

    // No area: no frame; the mirror ignores it too.
    EXPECT_TRUE(build(WriteRegister, request(26, 0, 1, 1, hex("0100"))).frame.isEmpty());
}

TEST_F(Frames, RemoteFramesDescribeTheRequest)
{
    RW_VAR v = request(D, 100, 10);
    v.ownerType = 2;
    Protocol p = build(Remote_ReadVar, v);
    EXPECT_EQ(p.frame, hex("160200000100" "0E00000064000A" "0000000000000000" "95"));
    EXPECT_EQ(p.replyLength, 25);

    EXPECT_EQ(build(Remote_ReadVar, request(X, 4096, 1)).frame.mid(7, 4), hex("00001000"));
    EXPECT_EQ(build(Remote_ReadVar, request(M, 0, 2)).replyLength, 7);
    // No area: queued, awaiting the word shape.
    p = build(Remote_ReadVar, request(40, -2, 3));
    EXPECT_EQ(p.frame.mid(5, 6), hex("0028FFFFFFFE"));
    EXPECT_EQ(p.replyLength, 11);
    EXPECT_TRUE(build(Remote_ReadVar, request(D, 0, -1)).frame.isEmpty());

    info->framesDone = 4;
    info->framesPerRequest = 6;
    setCommError(true);
    v = request(D, 0, 1, 1, hex("3412"));
    v.rwMode = 1;
    v.spare2 = 0x01020304;
    p = build(Remote_WriteVar, v);
    EXPECT_EQ(p.frame, hex("180001000100" "0E000000000001" "0000000001020304" "3412" "79"));
    EXPECT_EQ(p.sendLength, 24);
    EXPECT_EQ(p.replyLength, 8);
    EXPECT_EQ(PLC_driver.localArea.localD[0], 0x1234);  // even with the link down
    EXPECT_TRUE(info->framesDone == 4 && info->framesPerRequest == 6);
    setCommError(false);

    // 233 value bytes is the most the length byte can count.
    EXPECT_EQ(build(Remote_WriteVar, request(D, 200, 1, 1, QByteArray(233, '\1'))).frame.at(0),
              char(255));
    EXPECT_TRUE(build(Remote_WriteVar, request(D, 300, 1, 1, QByteArray(234, '\1'))).frame.isEmpty());
    EXPECT_EQ(PLC_driver.localArea.localD[300], 0);
}
