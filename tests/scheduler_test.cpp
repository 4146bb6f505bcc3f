// What happens to requests that cannot be framed, and to the frame in
// flight.
#include <gtest/gtest.h>

#include <QList>

#include "support/driver_reset.h"
#include "support/frame_request.h"

namespace {

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
