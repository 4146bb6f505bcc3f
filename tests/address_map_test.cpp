// Element -> coil/register translation. Segment expectations are derived
// from the controller's layout rule (coil blocks of 100, element blocks of
// octal 100), not copied from the table the map holds.
#include <gtest/gtest.h>

#include <cstdlib>

#include "frames/address_map.h"
#include "localarea/local_area.h"

namespace {

const int X = 0, Y = 1;

int octal(const char *text) { return static_cast<int>(strtol(text, nullptr, 8)); }

}  // namespace

TEST(AddressMap, XYSegmentsFollowTheCoilBlockRule)
{
    // Segment 0 at the X/Y base; 1..10 from element 4096 and 11..13 from 8192,
    // one coil block of 100 per segment of 64 elements.
    for (int seg = 0; seg < 14; ++seg) {
        const int run = seg <= 10 ? seg - 1 : seg - 11;
        const int start = seg == 0 ? 0 : (seg <= 10 ? 4096 : 8192) + 64 * run;
        const int offset = seg == 0 ? 0 : (seg <= 10 ? 256 : 2256) + 100 * run;
        SCOPED_TRACE(seg);
        for (int end : {0, 63}) {
            EXPECT_EQ(BitElementToCoil(X, start + end), 20480 + offset + end);
            EXPECT_EQ(BitElementToCoil(Y, start + end), 24576 + offset + end);
        }
    }
}

TEST(AddressMap, XYOutsideSegmentsAndNegativeAddresses)
{
    EXPECT_EQ(BitElementToCoil(X, octal("100")), 64);  // gaps are sent unchanged
    EXPECT_EQ(BitElementToCoil(X, octal("11200")), 4736);
    EXPECT_EQ(BitElementToCoil(Y, octal("20300")), 8384);
    // Segment 1 is tested signed, the others by unsigned distance: a
    // negative address belongs to segment 1 and never to a later one.
    EXPECT_EQ(BitElementToCoil(X, -1), 0x5000 - 1);
    EXPECT_EQ(BitElementToCoil(Y, -64), 0x6000 - 64);
    EXPECT_EQ(BitElementToCoil(X, 0x7FFFFFFF), 0x7FFFFFFF);
}

TEST(AddressMap, FixedBasesCoverFirstAndLastElementOfEveryArea)
{
    const int bitBase[14] = {0,      0,      0,      0x7000, 0xA000, 0xB000, 0xC000,
                             0x9000, 0xC100, 0xD900, 0xE100, 0xE500, 0xE900, 0xC080};
    for (int t = 2; t < 14; ++t) {
        SCOPED_TRACE(t);
        const int last = areaCapacity(t) - 1;
        EXPECT_EQ(BitElementToCoil(t, 0), bitBase[t]);
        EXPECT_EQ(BitElementToCoil(t, last), bitBase[t] + last);
        EXPECT_LE(BitElementToCoil(t, last), 0xFFFF);
    }
    const int wordBase[26] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                              0x8000, 0x9000, 0xC4C0, 0xA000, 0x7000, 0xA080,
                              0xE4C0, 0x5000, 0x6000, 0xB880, 0xF4C0};
    for (int t = 14; t < 26; ++t) {
        SCOPED_TRACE(t);
        const int last = areaCapacity(t) - 1;
        EXPECT_EQ(WordElementToRegister(t, 0), wordBase[t]);
        EXPECT_EQ(WordElementToRegister(t, last), wordBase[t] + last);
        EXPECT_LE(WordElementToRegister(t, last), 0xFFFF);
    }
    // No area: the address as it is, in both maps.
    EXPECT_EQ(WordElementToRegister(26, 100), 100);
    EXPECT_EQ(WordElementToRegister(-1, 100), 100);
    EXPECT_EQ(WordElementToRegister(14, 7999), 7999);
    EXPECT_EQ(BitElementToCoil(14, 9), 9);
    EXPECT_EQ(BitElementToCoil(-5, 9), 9);
}
