// Reply checks, retries, give-ups and what they do to the lists.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/replies.h"

namespace {

RW_VAR readOf(int address, int station = 1, int ownerType = 0, int ownerId = 0)
{
    RW_VAR v;
    v.areaType = 14;
    v.address = address;
    v.count = 1;
    v.station = station;
    v.ownerType = ownerType;
    v.ownerId = ownerId;
    return v;
}

RW_VAR writeOf(int address, int station)
{
    RW_VAR v = readOf(address, station);
    v.rwMode = 1;
    v.value = QByteArray(2, '\0');
    return v;
}

QList<int> calls;
void record(int context, int ownerType, int ownerId, int status)
{
    calls << context << ownerType << ownerId << status;
}

int answer(QByteArray reply)
{
    return DataCom(&reply, reply.size())->result;
}

int answerGood(const QByteArray &data = QByteArray())
{
    return answer(goodReplyFor(*ComCommunication(), data));
}

int noAnswer()
{
    ComCommunication();
    return DataCom(nullptr, 0)->result;
}

}  // namespace

TEST(Reply, GoodReadsAreStoredTheListTurnsAndTheScanCompletes)
{
    ComInfo *info = resetDriver();
    EXPECT_EQ(DataCom(nullptr, 0)->result, 1);  // nothing in flight
    for (int i = 0; i < 3; ++i) {
        RW_VAR r = readOf(100 + 10 * i);
        r.count = 2;
        AddListReadVar(&r);
    }
    EXPECT_EQ(answerGood(QByteArray("\x00\x01\x00\x02", 4)), 1);
    EXPECT_EQ(PLC_driver.localArea.localD[100], 1);
    EXPECT_EQ(PLC_driver.localArea.localD[101], 2);
    EXPECT_EQ(PLC_driver.readList.first().address, 110);  // served head went to the tail
    EXPECT_EQ(PLC_driver.result.address, 100);
    EXPECT_TRUE(PLC_driver.result.value.isEmpty());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(info->scanComplete, 0);
        answerGood();
    }
    EXPECT_EQ(info->scanComplete, 1);  // more good replies in a row than list entries

    // The list is replaced while a cyclic read is in flight: the data land
    // where the frame asked, and the new head is the one finished.
    Protocol *p = ComCommunication();
    const QByteArray reply = goodReplyFor(*p, QByteArray("\x12\x34\x56\x78", 4));
    const int asked = p->var.address;
    PLC_driver.readList.clear();
    RW_VAR fresh = readOf(500);
    AddListReadVar(&fresh);
    EXPECT_EQ(answer(reply), 1);
    EXPECT_EQ(PLC_driver.localArea.localD[asked], 0x1234);
    EXPECT_EQ(PLC_driver.result.address, 500);

    // A reply too long for a 16-bit checksum count is never taken as good,
    // even when its last two bytes happen to match the part that was covered.
    resetDriver()->retryLimit = 0;
    RW_VAR huge = readOf(0);
    huge.count = 0xFFFF;
    AddListReadVar(&huge);
    p = ComCommunication();
    QByteArray big = goodReplyFor(*p);
    const int covered = (big.size() - 2) & 0xFFFF;  // what a cut count would cover
    const QByteArray fooled = withCrc(big.left(covered)).right(2);
    big.replace(big.size() - 2, 2, fooled);
    EXPECT_EQ(answer(big), 11);
}

TEST(Reply, RetriesCountAcrossFramesUntilTheLimit)
{
    ComInfo *info = resetDriver();
    RW_VAR r = readOf(0);
    AddListReadVar(&r);
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(noAnswer(), 41);  // retryLimit 2: the third failure gives up
    EXPECT_EQ(info->retryCount, 0);
    EXPECT_TRUE(PLC_driver.sendQueue.isEmpty());

    // Good replies in between do not reset the count.
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(answerGood(), 1);
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(answerGood(), 1);
    EXPECT_EQ(noAnswer(), 41);
}

TEST(Reply, EveryBadReplyGetsItsBand)
{
    enum Fault { SwappedCrc, None, Short, ClaimsMore, NullWithLength, Bytes };
    struct Case {
        int ownerType, linkNo, station;
        Fault fault;
        int code;
    } cases[] = {
        {0, 0, 1, SwappedCrc, 11},      {11, 0, 1, None, 52},      {12, 0, 1, None, 41},
        {-1, 0, 1, None, 41},           {2, 0, 1, Short, 73},      {3, 0, 1, ClaimsMore, 14},
        {3, 0, 1, NullWithLength, 14},  {0, 5, 1, SwappedCrc, 111}, {1, 5, 1, None, 142},
        {4, 5, 1, Short, 175},          {0, 0, 0, None, 1},        {0, 0, 0, Bytes, 71},
    };
    for (const Case &c : cases) {
        resetDriver()->retryLimit = 0;
        RW_VAR r = readOf(10, c.station, c.ownerType);
        r.linkNo = c.linkNo;
        AddListOnceReadVar(&r, 1);
        Protocol *p = ComCommunication();
        ASSERT_NE(p, nullptr);
        QByteArray good = goodReplyFor(*p);
        int code = 0;
        switch (c.fault) {
        case SwappedCrc: {
            const char high = good.at(good.size() - 1);
            good[good.size() - 1] = good.at(good.size() - 2);
            good[good.size() - 2] = high;
            code = answer(good);
            break;
        }
        case None: code = DataCom(nullptr, 0)->result; break;
        case Short: code = answer(good.left(good.size() - 1)); break;
        case ClaimsMore: {
            QByteArray part = good.left(3);
            code = DataCom(&part, good.size())->result;
            break;
        }
        case NullWithLength: code = DataCom(nullptr, good.size())->result; break;
        case Bytes: code = answer(good); break;
        }
        EXPECT_EQ(code, c.code) << "ownerType " << c.ownerType << " fault " << c.fault;
        EXPECT_EQ(PLC_driver.result.ownerType, c.ownerType);
        EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    }
}

TEST(Reply, OneOffReadsCallBackOncePerRequester)
{
    ComInfo *info = resetDriver();
    info->callbackContext = 77;
    calls.clear();
    RegistCallBackFuncIntf(record, 5);
    RW_VAR a = readOf(0, 1, 2, 9), b = readOf(10, 1, 2, 9);
    AddListOnceReadVar(&a, 1);
    AddListOnceReadVar(&b, 1);
    answerGood();
    EXPECT_TRUE(calls.isEmpty());  // the same requester still has a read pending
    answerGood();
    EXPECT_EQ(calls, QList<int>() << 77 << 2 << 9 << 1);

    // Given up: status 2; a remote reply calls nobody back.
    calls.clear();
    info->retryLimit = 0;
    AddListOnceReadVar(&a, 1);
    noAnswer();
    EXPECT_EQ(calls, QList<int>() << 77 << 2 << 9 << 2);
    calls.clear();
    a.linkNo = 3;
    AddListOnceReadVar(&a, 1);
    EXPECT_EQ(answerGood(), 100);
    EXPECT_TRUE(calls.isEmpty());
}

TEST(Reply, GiveUpDropsTheStationsPendingWork)
{
    ComInfo *info = resetDriver();
    info->retryLimit = 0;
    info->multiStation = 1;
    for (int station = 1; station <= 3; ++station) {
        RW_VAR w = writeOf(station, station), o = readOf(station, station);
        AddListWriteVar(&w, 1);
        AddListOnceReadVar(&o, 1);
    }
    PLC_driver.writeList.prepend(writeOf(50, 3));
    noAnswer();  // station 3 given up: only its work goes
    EXPECT_EQ(PLC_driver.writeList.size(), 2);
    EXPECT_EQ(PLC_driver.onceReadList.size(), 2);
    for (const RW_VAR &v : PLC_driver.writeList + PLC_driver.onceReadList)
        EXPECT_NE(v.station, 3);

    info->multiStation = 0;  // single station: everything pending goes
    noAnswer();
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
}

namespace {
int readBack = -1;
void usesTheDriver(int, int, int, int)
{
    QByteArray out, value("\x05\x00", 2);
    GetRegisterData(QString(), 14, "0", 1, &out, 1);
    readBack = out.size();
    SetRegisterData("D", 14, "9", 1, &value, 1, 0, 0);
}
}  // namespace

TEST(Reply, CallBackMayReadAndQueue)
{
    resetDriver();
    RegistCallBackFuncIntf(usesTheDriver, 0);
    RW_VAR o = readOf(0);
    AddListOnceReadVar(&o, 1);
    answerGood();
    EXPECT_EQ(readBack, 2);
    EXPECT_EQ(PLC_driver.writeList.size(), 1);
}
