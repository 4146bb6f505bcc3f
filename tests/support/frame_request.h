// Compact request records for frame tests.
#ifndef RV_TEST_FRAME_REQUEST_H
#define RV_TEST_FRAME_REQUEST_H

#include "driver/records.h"

inline RW_VAR request(int areaType, int address, int count, int station = 1,
                      const QByteArray &value = QByteArray())
{
    RW_VAR v;
    v.areaType = areaType;
    v.address = address;
    v.count = count;
    v.station = station;
    v.value = value;
    return v;
}

#endif
