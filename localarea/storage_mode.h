// The runtime's ComInfo record as the local area reads it.
#ifndef QUORVEL_RV_STORAGE_MODE_H
#define QUORVEL_RV_STORAGE_MODE_H

#include "../driver/driver_object.h"

// Before SetComInfo the local area behaves as with an all-zero record:
// shared mirror, local-only writes, station 0.
inline const ComInfo &activeComInfo()
{
    static const ComInfo none;
    return PLC_driver.comInfo ? *PLC_driver.comInfo : none;
}

// Non-zero multiStation keeps each station's values apart in extendList.
inline bool stationStoreInUse()
{
    return activeComInfo().multiStation != 0;
}

#endif
