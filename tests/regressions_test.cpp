// Inputs that once broke the driver, found by the fuzz targets; each test
// is named after the fault it caught. They matter most in the sanitizer
// builds, where undefined arithmetic stops the test.
#include <gtest/gtest.h>

#include <climits>

#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/replies.h"
#include "support/variable.h"

// The single-station rebuild turned blockUnits into a bit limit by
// multiplying by 8 before looking at its sign: a large negative ComInfo
// value overflowed (fuzz input: blockUnits -1975095852, bit variables).
TEST(Regressions, BitLimitOverflowOnNegativeBlockUnits)
{
    QList<VarInfo> vars = QList<VarInfo>()
                          << variable("M", 2, "3", 20) << variable("X", 0, "17", 9)
                          << variable("D", 14, "7990", 30) << variable("SEM", 13, "24", 100);
    for (int blockUnits : {-1975095852, INT_MIN, INT_MAX, INT_MAX / 8 + 1, -1, 0}) {
        for (int multi = 0; multi <= 1; ++multi) {
            SCOPED_TRACE(testing::Message() << "blockUnits " << blockUnits << " multi " << multi);
            ComInfo *info = resetDriver();
            info->blockUnits = blockUnits;
            info->multiStation = multi;
            ReCreatReadVarList(&vars);  // the sanitizers judge
        }
    }
}

// Words of the runtime's record at the ends of the int range: a failed
// reply overflowed retryCount (the link then never gave up) and a good
// remote reply overflowed framesDone (a write was sent for ever).
TEST(Regressions, ComInfoWordsAtTheIntLimits)
{
    QList<VarInfo> vars = QList<VarInfo>() << variable("D", 14, "0", 4) << variable("M", 2, "8", 8);
    for (int extreme : {INT_MAX, INT_MIN}) {
        ComInfo *info = resetDriver();
        for (int *word : {&info->blockUnits, &info->defaultStation, &info->retryLimit,
                          &info->retryCount, &info->multiStation, &info->framesPerRequest,
                          &info->framesDone, &info->remoteLink, &info->localLinkNo,
                          &info->writeMode, &info->scanComplete, &info->callbackContext})
            *word = extreme;
        ReCreatReadVarList(&vars);
        for (int i = 0; i < 6; ++i) {
            RW_VAR write = request(14, 100 + i, 2, 1, QByteArray(4, '\1'));
            AddListWriteVar(&write, 0);
            RW_VAR once = request(14, 0, 3);
            once.addressText = QString::number(10 * i);
            AddListOnceReadVar(&once, 0);
        }
        // Every third reply fails; the rest are good.
        int round = 0;
        for (; round < 100 && PLC_driver.writeList.size() + PLC_driver.onceReadList.size() > 0;
             ++round) {
            Protocol *p = ComCommunication();
            QByteArray reply = p && round % 3 != 2 ? goodReplyFor(*p) : QByteArray();
            DataCom(&reply, reply.size());
        }
        EXPECT_LT(round, 100) << extreme;
    }
}
