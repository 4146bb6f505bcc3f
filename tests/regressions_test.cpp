// Inputs that once broke the driver, found by the fuzz targets; each test
// is named after the fault it caught. They matter most in the sanitizer
// builds, where undefined arithmetic stops the test.
#include <gtest/gtest.h>

#include <climits>

#include "support/driver_reset.h"

namespace {

VarInfo variable(int areaType, const char *name, const char *address, int count)
{
    VarInfo v;
    v.areaType = (unsigned char)areaType;
    v.station = 1;
    v.areaName = name;
    v.addressText = address;
    v.count = count;
    return v;
}

// Every cyclic request lies inside its area, in the units frames take.
void expectReadListInsideAreas()
{
    for (int i = 0; i < PLC_driver.readList.size(); ++i) {
        const RW_VAR &r = PLC_driver.readList.at(i);
        SCOPED_TRACE(testing::Message() << "entry " << i << " type " << r.areaType);
        ASSERT_TRUE(isArea(r.areaType));
        EXPECT_GE(r.count, 1);
        EXPECT_GE(r.address, 0);
        if (isBitArea(r.areaType)) {
            EXPECT_EQ(r.address % 8, 0);
            EXPECT_LE(r.address / 8 + r.count, areaCapacity(r.areaType) / 8);
        } else {
            EXPECT_LE(r.address + r.count, areaCapacity(r.areaType));
        }
    }
}

}  // namespace

// The single-station rebuild turned blockUnits into a bit limit by
// multiplying by 8 before looking at its sign: a large negative ComInfo
// value overflowed (fuzz input: blockUnits -1975095852, bit variables).
TEST(Regressions, BitLimitOverflowOnNegativeBlockUnits)
{
    const int hostile[] = {-1975095852, INT_MIN, INT_MAX, INT_MAX / 8 + 1, -1, 0};
    for (int blockUnits : hostile) {
        SCOPED_TRACE(blockUnits);
        ComInfo *info = resetDriver();
        info->blockUnits = blockUnits;
        QList<VarInfo> vars;
        vars << variable(2, "M", "3", 20) << variable(0, "X", "17", 9)
             << variable(14, "D", "7990", 30) << variable(13, "SEM", "24", 100);
        ReCreatReadVarList(&vars);
        EXPECT_GT(PLC_driver.readList.size(), 0);
        expectReadListInsideAreas();
        info->multiStation = 1;
        ReCreatReadVarList(&vars);
        EXPECT_GT(PLC_driver.readList.size(), 0);
        expectReadListInsideAreas();
    }
}
