// Reply checks, retries, give-ups and what they do to the lists.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/replies.h"

namespace {

// Records a call-back after reading a value and queueing a write from it, as
// the runtime's may: call-backs are made outside the driver's locks.
QList<int> calls;
void record(int context, int ownerType, int ownerId, int status)
{
    QByteArray out, value("\x05\x00", 2);
    GetRegisterData(QString(), 14, "0", 1, &out, 1);
    SetRegisterData("D", 14, "9", 1, &value, 1, 0, 0);
    calls << context << ownerType << ownerId << status << out.size();
}

// Hands `reply` to DataCom as `length` bytes (default: all of them).
int answer(QByteArray reply, int length = -1)
{
    return DataCom(&reply, length < 0 ? reply.size() : length)->result;
}

int answerGood()
{
    return answer(goodReplyFor(*ComCommunication()));
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
    PLC_driver.sendQueue.append(Protocol());
    EXPECT_EQ(CheckGetData(nullptr, 5), 0);  // bytes announced but none held
    QByteArray five(5, '\0');
    EXPECT_EQ(CheckGetData(&five, 1), 0);  // shorter than a CRC
    five = withCrc(QByteArray("\x01\x03\x00", 3));
    five[4] = char(five[4] ^ 1);  // the CRC's high byte wrong
    EXPECT_EQ(CheckGetData(&five, 5), 0);
    PLC_driver.sendQueue.clear();
    for (int i = 0; i < 3; ++i) {
        RW_VAR r = request(14, 100 + 10 * i, 2);
        AddListReadVar(&r);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(info->scanComplete, 0);
        EXPECT_EQ(answerGood(), 1);
    }
    EXPECT_EQ(info->scanComplete, 1);           // more good replies in a row than list entries
    EXPECT_EQ(PLC_driver.result.address, 100);  // the first entry, served again,
    EXPECT_EQ(PLC_driver.readList.first().address, 110);  // went to the tail

    // The list is replaced while a cyclic read is in flight: the data land
    // where the frame asked, and the new head is the one finished.
    Protocol *p = ComCommunication();
    const QByteArray reply = goodReplyFor(*p, QByteArray("\x12\x34\x56\x78", 4));
    const int asked = p->var.address;
    PLC_driver.readList.clear();
    RW_VAR fresh = request(14, 500, 1);
    AddListReadVar(&fresh);
    EXPECT_EQ(answer(reply), 1);
    EXPECT_EQ(PLC_driver.localArea.localD[asked], 0x1234);
    EXPECT_EQ(PLC_driver.result.address, 500);

    // A reply too long for a 16-bit checksum count is checked over the low
    // 16 bits of its length, the CRC still in its last two bytes.
    resetDriver()->retryLimit = 0;
    RW_VAR huge = request(14, 0, 0xFFFF);
    AddListReadVar(&huge);
    QByteArray big = goodReplyFor(*ComCommunication());
    const int covered = (big.size() - 2) & 0xFFFF;  // what a cut count would cover
    big.replace(big.size() - 2, 2, withCrc(big.left(covered)).right(2));
    EXPECT_EQ(answer(big), 1);

    // A one-off read's reply leaves the cyclic list where it was.
    resetDriver();
    for (int a : {100, 110}) {
        RW_VAR r = request(14, a, 1);
        AddListReadVar(&r);
    }
    RW_VAR once = request(14, 300, 1);
    AddListOnceReadVar(&once, 1);
    QList<int> sent;
    for (int i = 0; i < 4; ++i) {
        sent << ComCommunication()->var.address;
        answerGood();
    }
    EXPECT_EQ(sent, QList<int>({300, 100, 110, 100}));
}

TEST(Reply, RetriesCountAcrossFramesUntilTheLimit)
{
    resetDriver();
    RW_VAR r = request(14, 0, 1);
    AddListReadVar(&r);
    // Good replies in between do not reset the count: with retryLimit 2 the
    // third failure gives up.
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(answerGood(), 1);
    EXPECT_EQ(noAnswer(), 0);
    EXPECT_EQ(answerGood(), 1);
    EXPECT_EQ(noAnswer(), 41);
}

TEST(Reply, EveryBadReplyGetsItsBand)
{
    enum Fault { SwappedCrc, None, Short, ClaimsMore, NullWithLength, Bytes };
    const int cases[][5] = {
        // ownerType, linkNo, station, fault, code
        {0, 0, 1, SwappedCrc, 11},     {11, 0, 1, None, 52},       {12, 0, 1, None, 41},
        {-1, 0, 1, None, 41},          {2, 0, 1, Short, 73},       {3, 0, 1, ClaimsMore, 14},
        {3, 0, 1, NullWithLength, 44}, {0, 5, 1, SwappedCrc, 111}, {1, 5, 1, None, 142},
        {4, 5, 1, Short, 175},         {0, 0, 0, None, 1},         {0, 0, 0, Bytes, 71},
    };
    for (const int *c : cases) {
        resetDriver()->retryLimit = 0;
        RW_VAR r = request(14, 10, 1, c[2]);
        r.ownerType = c[0];
        r.linkNo = c[1];
        AddListOnceReadVar(&r, 1);
        Protocol *p = ComCommunication();
        ASSERT_NE(p, nullptr);
        const QByteArray good = goodReplyFor(*p);
        const int n = good.size();
        int code = 0;
        switch (c[3]) {
        case SwappedCrc:
            code = answer(good.left(n - 2) + good.right(1) + good.mid(n - 2, 1));
            break;
        case None: code = DataCom(nullptr, 0)->result; break;
        case Short: code = answer(good.left(n - 1)); break;
        case ClaimsMore: code = answer(good.left(3), n); break;
        case NullWithLength: code = DataCom(nullptr, n)->result; break;
        case Bytes: code = answer(good); break;
        }
        EXPECT_EQ(code, c[4]) << "ownerType " << c[0] << " fault " << c[3];
        EXPECT_EQ(PLC_driver.result.ownerType, c[0]);
        EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    }
}

TEST(Reply, OneOffReadsCallBackOncePerRequesterOutsideTheLocks)
{
    ComInfo *info = resetDriver();
    info->callbackContext = 77;
    calls.clear();
    RegistCallBackFuncIntf(record, 5);
    RW_VAR a = request(14, 0, 1), b = request(14, 10, 1);
    a.ownerType = b.ownerType = 2;
    a.ownerId = b.ownerId = 9;
    a.linkNo = 3;  // a remote reply calls nobody back
    AddListOnceReadVar(&a, 1);
    EXPECT_EQ(answerGood(), 100);
    a.linkNo = 0;
    AddListOnceReadVar(&a, 1);
    AddListOnceReadVar(&b, 1);
    answerGood();
    EXPECT_TRUE(calls.isEmpty());  // the same requester still has a read pending
    answerGood();
    EXPECT_EQ(calls, QList<int>({77, 2, 9, 1, 2}));  // 2: the value bytes it read
    EXPECT_EQ(PLC_driver.writeList.size(), 1);       // and the write it queued
    PLC_driver.writeList.clear();
    info->retryLimit = 0;  // a one-off read given up: status 2
    AddListOnceReadVar(&b, 1);
    noAnswer();
    EXPECT_EQ(calls.mid(5), QList<int>({77, 2, 9, 2, 2}));
}

TEST(Reply, GiveUpDropsTheStationsPendingWork)
{
    ComInfo *info = resetDriver();
    info->retryLimit = 0;
    info->multiStation = 1;
    for (int station = 1; station <= 3; ++station) {
        RW_VAR v = request(14, station, 1, station);
        AddListWriteVar(&v, 1);
        AddListOnceReadVar(&v, 1);
    }
    PLC_driver.writeList.prepend(request(14, 50, 1, 3));
    noAnswer();  // station 3 given up: only its work goes
    EXPECT_EQ(PLC_driver.writeList.size(), 2);
    EXPECT_EQ(PLC_driver.onceReadList.size(), 2);
    for (const RW_VAR &v : PLC_driver.writeList + PLC_driver.onceReadList)
        EXPECT_NE(v.station, 3);

    info->multiStation = 0;  // single station: everything pending goes
    noAnswer();
    EXPECT_TRUE(PLC_driver.writeList.isEmpty() && PLC_driver.onceReadList.isEmpty());
}
