// Reply checks, retries, give-ups and what they do to the lists.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/replies.h"

namespace {

RW_VAR readOf(int areaType, int address, int count, int station = 1)
{
    RW_VAR v;
    v.areaType = areaType;
    v.address = address;
    v.count = count;
    v.station = station;
    return v;
}

QList<int> calls;
void record(int context, int ownerType, int ownerId, int status)
{
    calls << context << ownerType << ownerId << status;
}

int answer(const QByteArray &bytes)
{
    QByteArray reply = bytes;
    return DataCom(&reply, reply.size())->result;
}

int noAnswer()
{
    return DataCom(nullptr, 0)->result;
}

}  // namespace

TEST(Reply, GoodReadIsStoredAndTheListTurns)
{
    resetDriver();
    RW_VAR a = readOf(14, 100, 2), b = readOf(14, 200, 1);
    AddListReadVar(&a);
    AddListReadVar(&b);
    Protocol *p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(answer(goodReplyFor(*p, QByteArray("\x00\x01\x00\x02", 4))), 1);
    EXPECT_EQ(PLC_driver.localArea.localD[100], 1);
    EXPECT_EQ(PLC_driver.localArea.localD[101], 2);
    EXPECT_EQ(PLC_driver.readList.first().address, 200);  // served head moved to the tail
    EXPECT_EQ(PLC_driver.result.address, 100);
    EXPECT_TRUE(PLC_driver.result.value.isEmpty());
    EXPECT_TRUE(PLC_driver.sendQueue.isEmpty());
    EXPECT_EQ(DataCom(nullptr, 0)->result, 1);  // nothing in flight
}

TEST(Reply, RetriesCountAcrossFramesAndGiveUpWithBandCodes)
{
    ComInfo *info = resetDriver();
    RW_VAR r = readOf(14, 0, 1);
    r.ownerType = 0;
    AddListReadVar(&r);
    ComCommunication();
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_NE(ComCommunication(), nullptr);  // resent
    EXPECT_EQ(noAnswer(), 0);
    ComCommunication();
    EXPECT_EQ(noAnswer(), 41);  // local, no reply, ownerType 0
    EXPECT_EQ(info->retryCount, 0);
    EXPECT_TRUE(PLC_driver.sendQueue.isEmpty());

    // A good reply between failures does not reset the count.
    Protocol *p = ComCommunication();
    EXPECT_EQ(noAnswer(), 0);
    p = ComCommunication();
    EXPECT_EQ(answer(goodReplyFor(*p)), 1);
    ComCommunication();
    EXPECT_EQ(noAnswer(), 0);
    p = ComCommunication();
    EXPECT_EQ(answer(goodReplyFor(*p)), 1);
    ComCommunication();
    EXPECT_NE(noAnswer(), 0);
}

TEST(Reply, EveryBadReplyGetsItsBand)
{
    struct Case {
        int ownerType;
        int linkNo;
        int kind;  // 0 crc swapped, 1 none, 2 short, 3 bad pointer/length
        int code;
    } cases[] = {
        {0, 0, 0, 11}, {11, 0, 1, 52}, {12, 0, 1, 41}, {-1, 0, 1, 41}, {2, 0, 2, 73},
        {3, 0, 3, 14}, {0, 5, 0, 111}, {1, 5, 1, 142}, {4, 5, 2, 175},
    };
    for (const Case &c : cases) {
        ComInfo *info = resetDriver();
        info->retryLimit = 0;
        RW_VAR r = readOf(14, 10, 2);
        r.ownerType = c.ownerType;
        r.linkNo = c.linkNo;
        AddListOnceReadVar(&r, 1);
        Protocol *p = ComCommunication();
        ASSERT_NE(p, nullptr);
        QByteArray good = goodReplyFor(*p);
        int code = 0;
        if (c.kind == 0) {
            const char high = good.at(good.size() - 1);
            good[good.size() - 1] = good.at(good.size() - 2);
            good[good.size() - 2] = high;
            code = answer(good);
        } else if (c.kind == 1) {
            code = noAnswer();
        } else if (c.kind == 2) {
            code = answer(good.left(good.size() - 1));
        } else {
            QByteArray shortReply = good.left(3);
            code = DataCom(&shortReply, good.size())->result;  // claims more than it holds
            EXPECT_EQ(code, c.code);
            resetDriver()->retryLimit = 0;
            RW_VAR again = r;
            AddListReadVar(&again);
            ComCommunication();
            code = DataCom(nullptr, good.size())->result;
        }
        EXPECT_EQ(code, c.code) << "ownerType " << c.ownerType << " kind " << c.kind;
        EXPECT_EQ(PLC_driver.result.ownerType, c.ownerType);
        EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    }
}

TEST(Reply, BroadcastSucceedsOnlyOnSilence)
{
    ComInfo *info = resetDriver();
    info->retryLimit = 0;
    RW_VAR r = readOf(14, 0, 1, 0);
    AddListReadVar(&r);
    ComCommunication();
    EXPECT_EQ(noAnswer(), 1);
    Protocol *p = ComCommunication();
    EXPECT_EQ(answer(goodReplyFor(*p)), 71);
}

TEST(Reply, OneOffReadsCallBackOncePerRequester)
{
    ComInfo *info = resetDriver();
    info->callbackContext = 77;
    calls.clear();
    RegistCallBackFuncIntf(record, 5);
    RW_VAR a = readOf(14, 0, 1), b = readOf(14, 10, 1);
    a.ownerType = b.ownerType = 2;
    a.ownerId = b.ownerId = 9;
    AddListOnceReadVar(&a, 1);
    AddListOnceReadVar(&b, 1);
    Protocol *p = ComCommunication();
    answer(goodReplyFor(*p));
    EXPECT_TRUE(calls.isEmpty());  // the same requester still has a read pending
    p = ComCommunication();
    answer(goodReplyFor(*p));
    EXPECT_EQ(calls, QList<int>() << 77 << 2 << 9 << 1);

    // Given up: status 2, and a remote reply calls nobody back.
    calls.clear();
    info->retryLimit = 0;
    AddListOnceReadVar(&a, 1);
    ComCommunication();
    noAnswer();
    EXPECT_EQ(calls, QList<int>() << 77 << 2 << 9 << 2);
    calls.clear();
    a.linkNo = 3;
    AddListOnceReadVar(&a, 1);
    p = ComCommunication();
    EXPECT_EQ(answer(goodReplyFor(*p)), 100);
    EXPECT_TRUE(calls.isEmpty());
}

TEST(Reply, GiveUpDropsTheStationsPendingWork)
{
    ComInfo *info = resetDriver();
    info->retryLimit = 0;
    info->multiStation = 1;
    for (int station = 1; station <= 3; ++station) {
        RW_VAR w = readOf(14, station, 1, station);
        w.rwMode = 1;
        w.value = QByteArray(2, '\0');
        AddListWriteVar(&w, 1);
        RW_VAR o = readOf(14, station, 1, station);
        AddListOnceReadVar(&o, 1);
    }
    RW_VAR w3 = readOf(14, 50, 1, 3);
    w3.rwMode = 1;
    w3.value = QByteArray(2, '\0');
    PLC_driver.writeList.prepend(w3);
    ComCommunication();
    noAnswer();  // station 3 given up
    for (const RW_VAR &v : PLC_driver.writeList)
        EXPECT_NE(v.station, 3);
    for (const RW_VAR &v : PLC_driver.onceReadList)
        EXPECT_NE(v.station, 3);
    EXPECT_EQ(PLC_driver.writeList.size(), 2);
    EXPECT_EQ(PLC_driver.onceReadList.size(), 2);

    info->multiStation = 0;  // single station: everything pending goes
    ComCommunication();
    noAnswer();
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
}

TEST(Reply, ScanCompletesAfterAFullPassAndRebuildKeepsTheLoopSane)
{
    ComInfo *info = resetDriver();
    for (int i = 0; i < 3; ++i) {
        RW_VAR r = readOf(14, i * 10, 1);
        AddListReadVar(&r);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(info->scanComplete, 0);
        Protocol *p = ComCommunication();
        answer(goodReplyFor(*p));
    }
    EXPECT_EQ(info->scanComplete, 1);

    // The list is replaced while a cyclic read is in flight: the data still
    // lands where the frame asked, and the new head is the one finished.
    Protocol *p = ComCommunication();
    const QByteArray reply = goodReplyFor(*p, QByteArray("\x12\x34", 2));
    const int asked = p->var.address;
    PLC_driver.readList.clear();
    RW_VAR fresh = readOf(14, 500, 1);
    AddListReadVar(&fresh);
    EXPECT_EQ(answer(reply), 1);
    EXPECT_EQ(PLC_driver.localArea.localD[asked], 0x1234);
    EXPECT_EQ(PLC_driver.result.address, 500);
}

namespace {
int readBack = -1;
void readsAndWritesFromCallBack(int, int, int, int)
{
    QByteArray out;
    GetRegisterData(QString(), 14, "0", 1, &out, 1);
    readBack = out.size();
    QByteArray value("\x05\x00", 2);
    SetRegisterData("D", 14, "9", 1, &value, 1, 0, 0);
}
}  // namespace

TEST(Reply, CallBackMayUseTheDriver)
{
    resetDriver();
    RegistCallBackFuncIntf(readsAndWritesFromCallBack, 0);
    RW_VAR o = readOf(14, 0, 1);
    AddListOnceReadVar(&o, 1);
    Protocol *p = ComCommunication();
    answer(goodReplyFor(*p));
    EXPECT_EQ(readBack, 2);
    EXPECT_EQ(PLC_driver.writeList.size(), 1);
}
