// The mirror of the controller's element areas: which block belongs to an
// area type, and the one bounds guard.
#ifndef QUORVEL_RV_LOCAL_AREA_H
#define QUORVEL_RV_LOCAL_AREA_H

#include "areas.h"

// 26 blocks in area-type order, each holding its area's capacity; bit
// blocks hold 8 elements per byte, word blocks one 16-bit word per element
// in the processor's byte order.
struct LocalArea {
    unsigned char localX[1048];
    unsigned char localY[1048];
    unsigned char localM[1000];
    unsigned char localS[128];
    unsigned char localT[72];
    unsigned char localC[72];
    unsigned char localET[4];
    unsigned char localSM[256];
    unsigned char localHM[120];
    unsigned char localHS[16];
    unsigned char localHT[12];
    unsigned char localHC[12];
    unsigned char localHSC[4];
    unsigned char localSEM[4];
    unsigned short localD[8000];
    unsigned short localTD[576];
    unsigned short localCD[576];
    unsigned short localFD[6144];
    unsigned short localETD[32];
    unsigned short localSD[4096];
    unsigned short localHD[1000];
    unsigned short localSFD[2000];
    unsigned short localID[100];
    unsigned short localQD[100];
    unsigned short localHSD[500];
    unsigned short localFS[48];
};
static_assert(sizeof(LocalArea) == 50140, "local area is 50140 bytes");

// The block of an area type inside `area`, or null when the type has no
// block of that kind.
unsigned char *bitBlock(LocalArea &area, int areaType);
unsigned short *wordBlock(LocalArea &area, int areaType);

// The one bounds guard of the local area. Cuts [start, start+count) to the
// area's capacity. Returns false (nothing to touch) for no area, a negative
// start, a count below 1, or a start at or past the end; never overflows.
// Bounds rule of the whole local area, mirror and per-station store alike:
// a range running past an area's end is cut there (GetRegisterData,
// SetRegisterData before it splits into blocks, WriteDataToLocal, stored
// replies); a negative count acts as 0. A stored reply is placed by its
// frame, so its units before element 0 are dropped and the rest kept.
bool clampToArea(int areaType, int start, int &count);

#endif
