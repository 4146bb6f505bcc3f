// The controller's 26 element areas, one row each: the one place that says
// what an area type is. Types and names are the public header's RvArea
// enumerators, so the names a runtime writes and the driver's table are one
// list. Plain data and inline look-ups only, so the tools (rvpoll, the fuzz
// input) include it without linking the driver.
#ifndef QUORVEL_RV_AREAS_H
#define QUORVEL_RV_AREAS_H

#include "../driver/quorvel_rv_series.h"

enum { AreaTypeCount = RvArea::FS + 1, FirstWordArea = RvArea::D };

struct AreaFacts {
    RvArea::Type type;  // the row's own type, which is its index
    const char *name;   // as the runtime writes it: the enumerator's name
    bool octal;         // element numbers written in octal
    int capacity;       // elements (bits or words) the local area holds
    int base;           // coil (bit areas) or register (word areas) of element 0;
                        // X and Y are placed by their segment table instead
    bool queuedWrite;   // SetRegisterData may queue writes to it
};

// In area-type order: the type is the index (checked below). Bit areas
// X..SEM, then word areas D..FS. X and SEM take no queued writes, nor does
// anything past FS. A row's type and name come from one enumerator.
#define RV_AREA_ROW(name) RvArea::name, #name
inline constexpr AreaFacts kAreas[AreaTypeCount] = {
    {RV_AREA_ROW(X), true, 8384, 0, false},       {RV_AREA_ROW(Y), true, 8384, 0, true},
    {RV_AREA_ROW(M), false, 8000, 0x0000, true},  {RV_AREA_ROW(S), false, 1024, 0x7000, true},
    {RV_AREA_ROW(T), false, 576, 0xA000, true},   {RV_AREA_ROW(C), false, 576, 0xB000, true},
    {RV_AREA_ROW(ET), false, 32, 0xC000, true},   {RV_AREA_ROW(SM), false, 2048, 0x9000, true},
    {RV_AREA_ROW(HM), false, 960, 0xC100, true},  {RV_AREA_ROW(HS), false, 128, 0xD900, true},
    {RV_AREA_ROW(HT), false, 96, 0xE100, true},   {RV_AREA_ROW(HC), false, 96, 0xE500, true},
    {RV_AREA_ROW(HSC), false, 32, 0xE900, true},  {RV_AREA_ROW(SEM), false, 32, 0xC080, false},
    {RV_AREA_ROW(D), false, 8000, 0x0000, true},  {RV_AREA_ROW(TD), false, 576, 0x8000, true},
    {RV_AREA_ROW(CD), false, 576, 0x9000, true},  {RV_AREA_ROW(FD), false, 6144, 0xC4C0, true},
    {RV_AREA_ROW(ETD), false, 32, 0xA000, true},  {RV_AREA_ROW(SD), false, 4096, 0x7000, true},
    {RV_AREA_ROW(HD), false, 1000, 0xA080, true}, {RV_AREA_ROW(SFD), false, 2000, 0xE4C0, true},
    {RV_AREA_ROW(ID), false, 100, 0x5000, true},  {RV_AREA_ROW(QD), false, 100, 0x6000, true},
    {RV_AREA_ROW(HSD), false, 500, 0xB880, true}, {RV_AREA_ROW(FS), false, 48, 0xF4C0, true},
};
#undef RV_AREA_ROW

// A row out of place would give an area another area's facts.
inline constexpr bool areaRowsInTypeOrder()
{
    for (int t = 0; t < AreaTypeCount; ++t)
        if (kAreas[t].type != t)
            return false;
    return true;
}
static_assert(areaRowsInTypeOrder(), "kAreas rows are in RvArea order");

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
