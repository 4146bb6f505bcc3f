// Inputs that once broke the driver, found by the fuzz targets; each test
// is named after the fault it caught. They matter most in the sanitizer
// builds, where undefined arithmetic stops the test.
#include <gtest/gtest.h>

#include <climits>

#include "driver/checksum.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/replies.h"
#include "support/variable.h"

// Words of the runtime's record at the ends of the int range: a failed
// reply overflowed retryCount (the link then never gave up), a good remote
// reply overflowed framesDone (a write was sent for ever), and the
// single-station rebuild overflowed 8 x blockUnits (fuzz input: blockUnits
// -1975095852, bit variables). The helpers added past INT_MAX too.
TEST(Regressions, ComInfoWordsAndHelpersAtTheIntLimits)
{
    QList<VarInfo> vars = QList<VarInfo>()
                          << variable("M", 2, "3", 20) << variable("X", 0, "17", 9)
                          << variable("D", 14, "7990", 30) << variable("SEM", 13, "24", 100);
    for (int extreme : {INT_MAX, INT_MIN}) {
        ComInfo *info = resetDriver();
        for (int *word :
             {&info->blockUnits, &info->defaultStation, &info->retryLimit, &info->retryCount,
              &info->multiStation, &info->framesPerRequest, &info->framesDone, &info->remoteLink,
              &info->localLinkNo, &info->writeMode, &info->scanComplete, &info->callbackContext})
            *word = extreme;
        // Good replies finish every write, failed ones give each request up:
        // either way all work ends within a few rounds.
        for (int failing = 0; failing <= 1; ++failing) {
            for (int i = 0; i < 6; ++i) {
                RW_VAR write = request(14, 100 + i, 2, 1, QByteArray(4, '\1')), once = write;
                once.addressText = QString::number(10 * i);
                AddListWriteVar(&write, 0);
                if (failing)
                    AddListOnceReadVar(&once, 0);
            }
            int round = 0;
            for (; round < 60 && PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
                 ++round) {
                Protocol *p = ComCommunication();
                QByteArray reply = p && !failing ? goodReplyFor(*p) : QByteArray();
                DataCom(&reply, reply.size());
            }
            EXPECT_LT(round, 60) << extreme << " failing " << failing;
            info->multiStation = failing ? extreme : 0;  // both final passes
            ReCreatReadVarList(&vars);
            info->multiStation = extreme;
        }
    }
    EXPECT_EQ(DigitalToASCII(INT_MAX), INT_MIN + 54);  // modulo 2^32
    EXPECT_EQ(SwitchErrorReturn(INT_MAX), INT_MIN);
}
