// Inputs that once broke the driver, found by the fuzz targets; each test
// is named after the fault it caught. They matter most in the sanitizer
// builds, where undefined arithmetic stops the test.
#include <gtest/gtest.h>

#include <climits>

#include "support/driver_reset.h"
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
            ReCreatReadVarList(&vars);
            EXPECT_GT(PLC_driver.readList.size(), 0);
            // Every cyclic request lies inside its area, in the units frames take.
            for (const RW_VAR &r : PLC_driver.readList) {
                ASSERT_TRUE(isArea(r.areaType));
                EXPECT_TRUE(r.count >= 1 && r.address >= 0) << r.count << " at " << r.address;
                const int unit = isBitArea(r.areaType) ? 8 : 1;
                EXPECT_EQ(r.address % unit, 0);
                EXPECT_LE(r.address / unit + r.count, areaCapacity(r.areaType) / unit);
            }
        }
    }
}
