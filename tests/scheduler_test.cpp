// Which request goes out next, and what happens to requests that cannot be
// framed.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/replies.h"

namespace {

// Serves `frames` frames with good answers; returns the list each came from
// (-1: nothing to send).
QList<int> serve(int frames)
{
    QList<int> kinds;
    for (int i = 0; i < frames; ++i) {
        Protocol *p = ComCommunication();
        kinds << (p ? int(PLC_driver.currentKind) : -1);
        QByteArray reply = p ? goodReplyFor(*p) : QByteArray();
        DataCom(&reply, reply.size());
    }
    return kinds;
}

QList<int> callbacks;
void recordCallback(int, int ownerType, int ownerId, int status)
{
    callbacks << ownerType << ownerId << status;
}

}  // namespace

TEST(Scheduler, UnframeableRequestsAreDroppedAndTheFrameInFlightComesAgain)
{
    ComInfo *info = resetDriver();
    callbacks.clear();
    RegistCallBackFuncIntf(recordCallback, 0);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(info->scanComplete, 1);  // nothing to poll: the scan is complete

    RW_VAR badOnce = request(-1, 0, 1);
    badOnce.ownerType = 3;
    badOnce.ownerId = 42;
    AddListOnceReadVar(&badOnce, 1);
    AddListOnceReadVar(&badOnce, 1);
    badOnce.ownerId = 43;
    AddListOnceReadVar(&badOnce, 1);
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_TRUE(callbacks.isEmpty());  // its requester still has a read pending
    EXPECT_TRUE(!ComCommunication() && !ComCommunication());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    EXPECT_EQ(callbacks, QList<int>({3, 42, 2, 3, 43, 2}));  // each requester hears it gave up

    RW_VAR bad = request(30, 0, 1), good = request(14, 5, 1);
    AddListReadVar(&bad);
    AddListReadVar(&good);
    EXPECT_EQ(ComCommunication(), nullptr);  // the bad head goes, polling continues
    ASSERT_EQ(PLC_driver.readList.size(), 1);
    Protocol *first = ComCommunication();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->var.address, 5);
    EXPECT_EQ(ComCommunication(), first);  // unanswered: the same frame, nothing built
    EXPECT_EQ(PLC_driver.sendQueue.size(), 1);
}

TEST(Scheduler, BurstsOfFiveKeepEveryListMoving)
{
    resetDriver();
    RW_VAR cyclic = request(14, 0, 4), once = request(14, 300, 1);
    RW_VAR w = request(14, 7, 1, 1, QByteArray("\x01\x00", 2));
    w.rwMode = 1;
    AddListReadVar(&cyclic);
    for (int i = 0; i < 12; ++i)
        AddListWriteVar(&w, 1);
    for (int i = 0; i < 12; ++i)
        AddListOnceReadVar(&once, 1);
    EXPECT_EQ(serve(28), QList<int>({1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 0, 1, 1, 1,
                                     1, 1, 2, 2, 2, 2, 2, 0, 1, 1, 2, 2, 0, 0}));

    // No cyclic list: after five of each the counters reset on an idle call.
    resetDriver();
    for (int i = 0; i < 10; ++i) {
        AddListWriteVar(&w, 1);
        AddListOnceReadVar(&once, 1);
    }
    EXPECT_EQ(serve(21),
              QList<int>({1, 1, 1, 1, 1, 2, 2, 2, 2, 2, -1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2}));
}

TEST(Scheduler, RemoteLinkFramesEveryList)
{
    resetDriver()->remoteLink = 1;
    RW_VAR w = request(14, 7, 1, 1, QByteArray("\x01\x00", 2)), r = request(30, 0, 1);
    w.rwMode = 1;
    AddListWriteVar(&w, 1);
    AddListReadVar(&r);          // area 30: no controller frame, but a remote one
    for (int size : {24, 22}) {  // the write, then the read
        Protocol *p = ComCommunication();
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->frame.size(), size);
        serve(1);
    }
}
