#include "address_map.h"

#include "../localarea/areas.h"

namespace {

// X and Y are published in 14 segments of 64 elements, each moved by its
// own offset into the coil space. The controller's coil blocks step by 100
// while the octal element numbers step by 64, so the offsets are listed as
// the controller documents them rather than derived.
struct Segment {
    int start;    // first element address of the segment
    int xOffset;  // coil = element + offset
    int yOffset;
};

const int kSegmentSize = 64;

const Segment kSegments[] = {
    {0x0000, 0x5000, 0x6000},  // X0..X77
    {0x1000, 0x4100, 0x5100},  // X10000..X10077
    {0x1040, 0x4124, 0x5124}, {0x1080, 0x4148, 0x5148}, {0x10C0, 0x416C, 0x516C},
    {0x1100, 0x4190, 0x5190}, {0x1140, 0x41B4, 0x51B4}, {0x1180, 0x41D8, 0x51D8},
    {0x11C0, 0x41FC, 0x51FC}, {0x1200, 0x4220, 0x5220}, {0x1240, 0x4244, 0x5244},  // X11100..X11177
    {0x2000, 0x38D0, 0x48D0},                                                      // X20000..X20077
    {0x2040, 0x38F4, 0x48F4}, {0x2080, 0x3918, 0x4918},                            // X20200..X20277
};

}  // namespace

int BitElementToCoil(int areaType, int address)
{
    if (isOctalArea(areaType)) {
        // The first segment is tested signed, so small negative addresses
        // land just below X0/Y0; the others by unsigned distance.
        for (unsigned i = 0; i < sizeof kSegments / sizeof kSegments[0]; ++i) {
            const Segment &s = kSegments[i];
            const bool inside =
                i == 0 ? address < kSegmentSize
                       : static_cast<unsigned>(address) - static_cast<unsigned>(s.start) <
                             static_cast<unsigned>(kSegmentSize);
            if (inside)
                return static_cast<int>(
                    static_cast<unsigned>(address) +
                    static_cast<unsigned>(areaType == 0 ? s.xOffset : s.yOffset));
        }
        return address;  // outside every segment: sent as it is
    }
    if (isBitArea(areaType))
        return static_cast<int>(static_cast<unsigned>(address) +
                                static_cast<unsigned>(areaBase(areaType)));
    return address;
}

int WordElementToRegister(int areaType, int address)
{
    if (isWordArea(areaType))
        return static_cast<int>(static_cast<unsigned>(address) +
                                static_cast<unsigned>(areaBase(areaType)));
    return address;
}

namespace {

// The element of `type` that `target` is mapped to, searched in the area's
// own range: the forward map is the one statement of where elements lie.
bool elementAt(int type, int target, int (*toAddress)(int, int), int &address)
{
    const int capacity = areaCapacity(type);
    if (isOctalArea(type)) {
        for (const Segment &s : kSegments) {
            const int element = target - (type == 0 ? s.xOffset : s.yOffset);
            if (element >= s.start && element < s.start + kSegmentSize && element < capacity &&
                toAddress(type, element) == target) {
                address = element;
                return true;
            }
        }
        return false;
    }
    const int element = target - areaBase(type);
    if (element < 0 || element >= capacity || toAddress(type, element) != target)
        return false;
    address = element;
    return true;
}

}  // namespace

bool CoilToBitElement(int coil, int &areaType, int &address)
{
    for (int type = 0; type < FirstWordArea; ++type)
        if (elementAt(type, coil, BitElementToCoil, address)) {
            areaType = type;
            return true;
        }
    return false;
}

bool RegisterToWordElement(int reg, int &areaType, int &address)
{
    for (int type = FirstWordArea; type < AreaTypeCount; ++type)
        if (elementAt(type, reg, WordElementToRegister, address)) {
            areaType = type;
            return true;
        }
    return false;
}
