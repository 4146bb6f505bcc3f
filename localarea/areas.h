// The controller's 26 element areas, one row each: the one place that says
// what an area type is. Plain data and inline look-ups only, so the tools
// (rvpoll, the fuzz input) include it without linking the driver.
#ifndef QUORVEL_RV_AREAS_H
#define QUORVEL_RV_AREAS_H

enum { AreaTypeCount = 26, FirstWordArea = 14 };

struct AreaFacts {
    const char *name;  // as the runtime writes it
    bool octal;        // element numbers written in octal
    int capacity;      // elements (bits or words) the local area holds
    int base;          // coil (bit areas) or register (word areas) of element 0;
                       // X and Y are placed by their segment table instead
    bool queuedWrite;  // SetRegisterData may queue writes to it
};

// In area-type order: the type is the index. Bit areas X..SEM, then word
// areas D..FS. X and SEM take no queued writes, nor does anything past FS.
inline constexpr AreaFacts kAreas[AreaTypeCount] = {
    {"X", true, 8384, 0, false},       {"Y", true, 8384, 0, true},
    {"M", false, 8000, 0x0000, true},  {"S", false, 1024, 0x7000, true},
    {"T", false, 576, 0xA000, true},   {"C", false, 576, 0xB000, true},
    {"ET", false, 32, 0xC000, true},   {"SM", false, 2048, 0x9000, true},
    {"HM", false, 960, 0xC100, true},  {"HS", false, 128, 0xD900, true},
    {"HT", false, 96, 0xE100, true},   {"HC", false, 96, 0xE500, true},
    {"HSC", false, 32, 0xE900, true},  {"SEM", false, 32, 0xC080, false},
    {"D", false, 8000, 0x0000, true},  {"TD", false, 576, 0x8000, true},
    {"CD", false, 576, 0x9000, true},  {"FD", false, 6144, 0xC4C0, true},
    {"ETD", false, 32, 0xA000, true},  {"SD", false, 4096, 0x7000, true},
    {"HD", false, 1000, 0xA080, true}, {"SFD", false, 2000, 0xE4C0, true},
    {"ID", false, 100, 0x5000, true},  {"QD", false, 100, 0x6000, true},
    {"HSD", false, 500, 0xB880, true}, {"FS", false, 48, 0xF4C0, true},
};

inline bool isArea(int areaType)
{
    return areaType >= 0 && areaType < AreaTypeCount;
}
inline bool isBitArea(int areaType)
{
    return areaType >= 0 && areaType < FirstWordArea;
}
inline bool isWordArea(int areaType)
{
    return areaType >= FirstWordArea && areaType < AreaTypeCount;
}
// X and Y: octal element numbers, coils placed by segment.
inline bool isOctalArea(int areaType)
{
    return isArea(areaType) && kAreas[areaType].octal;
}
inline bool takesQueuedWrite(int areaType)
{
    return isArea(areaType) && kAreas[areaType].queuedWrite;
}

// Capacity of an area in elements (bits or words); 0 for no area.
inline int areaCapacity(int areaType)
{
    return isArea(areaType) ? kAreas[areaType].capacity : 0;
}

// Coil or register of element 0 of the area; 0 for no area.
inline int areaBase(int areaType)
{
    return isArea(areaType) ? kAreas[areaType].base : 0;
}

// The area's name, or null for no area.
inline const char *areaName(int areaType)
{
    return isArea(areaType) ? kAreas[areaType].name : nullptr;
}

// The number base addresses of the area are written in.
inline int addressBase(int areaType)
{
    return isOctalArea(areaType) ? 8 : 10;
}

#endif
