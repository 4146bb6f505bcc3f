// Element -> coil/register translation. Segment expectations are derived
// from the controller's layout rule (coil blocks of 100, element blocks of
// octal 100), not copied from the table the map holds.
#include <gtest/gtest.h>

#include "frames/address_map.h"
#include "localarea/local_area.h"

namespace {
const int X = 0, Y = 1;
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
    // Gaps between segments (X100, X11200, Y20300 in octal) are sent unchanged.
    EXPECT_EQ(BitElementToCoil(X, 0100), 0100);
    EXPECT_EQ(BitElementToCoil(X, 011200), 011200);
    EXPECT_EQ(BitElementToCoil(Y, 020300), 020300);
    // Segment 1 is tested signed, the others by unsigned distance: a
    // negative address belongs to segment 1 and never to a later one.
    EXPECT_EQ(BitElementToCoil(X, -1), 0x5000 - 1);
    EXPECT_EQ(BitElementToCoil(Y, -64), 0x6000 - 64);
    EXPECT_EQ(BitElementToCoil(X, 0x7FFFFFFF), 0x7FFFFFFF);
}

TEST(AddressMap, FixedBasesCoverFirstAndLastElementOfEveryArea)
{
    // Bit areas M..SEM (2..13) are coils, word areas D..FS (14..25) registers.
    const int base[26] = {0,      0,      0,      0x7000, 0xA000, 0xB000, 0xC000, 0x9000, 0xC100,
                          0xD900, 0xE100, 0xE500, 0xE900, 0xC080, 0,      0x8000, 0x9000, 0xC4C0,
                          0xA000, 0x7000, 0xA080, 0xE4C0, 0x5000, 0x6000, 0xB880, 0xF4C0};
    for (int t = 2; t < 26; ++t) {
        SCOPED_TRACE(t);
        int (*map)(int, int) = t < 14 ? BitElementToCoil : WordElementToRegister;
        const int last = areaCapacity(t) - 1;
        EXPECT_EQ(map(t, 0), base[t]);
        EXPECT_EQ(map(t, last), base[t] + last);
        EXPECT_LE(map(t, last), 0xFFFF);
    }
    // No area of the map's kind: the address as it is.
    for (int t : {26, -1})
        EXPECT_EQ(WordElementToRegister(t, 100), 100) << t;
    for (int t : {14, -5})
        EXPECT_EQ(BitElementToCoil(t, 9), 9) << t;
    EXPECT_STREQ(areaName(12), "HSC");
    EXPECT_EQ(areaName(26), nullptr);
}

TEST(AddressMap, CoilsAndRegistersLeadBackToTheirElements)
{
    // Coil/register -> area type and element (X, Y octal), or none (-1).
    const struct {
        bool coil;
        int target, type, element;
    } rows[] = {
        {true, 0x5000, X, 0},      {true, 0x503F, X, 077},       {true, 0x5040, -1, 0},
        {true, 0x5100, X, 010000}, {true, 0x58D0, X, 020000},    {true, 0x6000, Y, 0},
        {true, 0, 2, 0},           {true, 7999, 2, 7999},        {true, 8000, -1, 0},
        {true, 0x7000, 3, 0},      {true, 0xC09F, 13, 31},       {false, 0, 14, 0},
        {false, 0x8005, 15, 5},    {false, 0xF4C0 + 47, 25, 47}, {false, 0xF4C0 + 48, -1, 0},
        {false, 0xFFFF, -1, 0},
    };
    for (const auto &r : rows) {
        int type = -1, element = -1;
        const bool found = r.coil ? CoilToBitElement(r.target, type, element)
                                  : RegisterToWordElement(r.target, type, element);
        EXPECT_EQ(r.type >= 0, found) << std::hex << r.target;
        if (found) {
            EXPECT_EQ(r.type * 100000 + r.element, type * 100000 + element) << std::hex << r.target;
        }
    }
    // Every element of every area comes back from where the map puts it,
    // but X/Y elements between segments, sent as their own coil.
    for (int t = 0; t < 26; ++t) {
        for (int e = 0; e < areaCapacity(t); ++e) {
            const bool bits = t < 14;
            const int target = bits ? BitElementToCoil(t, e) : WordElementToRegister(t, e);
            int type = -1, element = -1;
            const bool found = bits ? CoilToBitElement(target, type, element)
                                    : RegisterToWordElement(target, type, element);
            if (t > Y || (found && type == t)) {
                EXPECT_TRUE(found) << "area " << t << " element " << e;
                EXPECT_EQ(t * 100000 + e, type * 100000 + element);
            }
        }
    }
}
