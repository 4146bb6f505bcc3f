// Which request goes out next, and what happens to requests that cannot be
// framed.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/replies.h"

namespace {

RW_VAR request(int areaType, int address, int count, int ownerId = 0)
{
    RW_VAR v;
    v.areaType = areaType;
    v.address = address;
    v.count = count;
    v.station = 1;
    v.ownerId = ownerId;
    v.rwMode = 0;
    return v;
}

RW_VAR writeOf(int address)
{
    RW_VAR v = request(14, address, 1);
    v.rwMode = 1;
    v.value = QByteArray("\x01\x00", 2);
    return v;
}

// Serves one frame with a good answer and returns the list it came from.
int serveOne()
{
    Protocol *p = ComCommunication();
    if (!p)
        return -1;
    const int kind = PLC_driver.currentKind;
    QByteArray reply = goodReplyFor(*p);
    DataCom(&reply, reply.size());
    return kind;
}

QList<int> callbacks;
void recordCallback(int, int ownerType, int ownerId, int status)
{
    callbacks << ownerType << ownerId << status;
}

}  // namespace

TEST(Scheduler, IdleLoopAndRetryReturnTheRightFrame)
{
    ComInfo *info = resetDriver();
    PLC_driver.writeBurst = 3;
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(info->scanComplete, 1);
    EXPECT_EQ(PLC_driver.writeBurst, 0);
    EXPECT_EQ(PLC_driver.currentKind, int(KindNone));

    RW_VAR r = request(14, 100, 10);
    AddListReadVar(&r);
    Protocol *first = ComCommunication();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(ComCommunication(), first);  // unanswered: the same frame, nothing built
    EXPECT_EQ(PLC_driver.sendQueue.size(), 1);
}

TEST(Scheduler, BurstsOfFiveKeepEveryListMoving)
{
    resetDriver();
    RW_VAR cyclic = request(14, 0, 4);
    AddListReadVar(&cyclic);
    for (int i = 0; i < 12; ++i) {
        RW_VAR w = writeOf(200 + i);
        AddListWriteVar(&w, 1);
    }
    for (int i = 0; i < 3; ++i) {
        RW_VAR o = request(14, 300 + i, 1, i);
        AddListOnceReadVar(&o, 1);
    }
    QList<int> kinds;
    for (int i = 0; i < 19; ++i)
        kinds << serveOne();
    const QList<int> expected = QList<int>() << 1 << 1 << 1 << 1 << 1 << 2 << 2 << 2 << 0 << 1
                                             << 1 << 1 << 1 << 1 << 0 << 1 << 1 << 0 << 0;
    EXPECT_EQ(kinds, expected);

    // Eight writes and nothing else: after five the counters reset on an idle call.
    resetDriver();
    for (int i = 0; i < 8; ++i) {
        RW_VAR w = writeOf(i);
        AddListWriteVar(&w, 1);
    }
    kinds.clear();
    for (int i = 0; i < 9; ++i)
        kinds << serveOne();
    EXPECT_EQ(kinds, QList<int>() << 1 << 1 << 1 << 1 << 1 << -1 << 1 << 1 << 1);
}

TEST(Scheduler, UnframeableRequestsAreDroppedNotBlocking)
{
    resetDriver();
    callbacks.clear();
    RegistCallBackFuncIntf(recordCallback, 0);
    RW_VAR bad = request(30, 0, 1);
    RW_VAR good = request(14, 5, 1);
    AddListReadVar(&bad);
    AddListReadVar(&good);
    EXPECT_EQ(ComCommunication(), nullptr);  // the bad head goes, polling continues
    ASSERT_EQ(PLC_driver.readList.size(), 1);
    EXPECT_EQ(serveOne(), 0);
    EXPECT_EQ(PLC_driver.result.address, 5);

    RW_VAR badOnce = request(-1, 0, 1, 42);
    badOnce.ownerType = 3;
    AddListOnceReadVar(&badOnce, 1);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    EXPECT_EQ(callbacks, QList<int>() << 3 << 42 << 2);  // its requester hears it gave up
}

TEST(Scheduler, RemoteLinkFramesEveryList)
{
    ComInfo *info = resetDriver();
    info->remoteLink = 1;
    RW_VAR w = writeOf(7);
    AddListWriteVar(&w, 1);
    RW_VAR r = request(30, 0, 1);  // no controller frame, but a remote one
    AddListReadVar(&r);
    Protocol *p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->frame.size(), 24);
    EXPECT_EQ(p->frame.at(0), char(24));
    serveOne();
    p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->frame.size(), 22);
    EXPECT_EQ(p->var.areaType, 30);
}
