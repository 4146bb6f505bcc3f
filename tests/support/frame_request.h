// Compact request records for the tests.
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

// A request as the runtime queues it, by address text (octal for X and Y).
inline RW_VAR request(int areaType, const char *address, int count, int station = 1,
                      int ownerId = 0, const QByteArray &value = QByteArray())
{
    RW_VAR v =
        request(areaType, QString::fromLatin1(address).toInt(nullptr, areaType <= 1 ? 8 : 10),
                count, station, value);
    v.addressText = QString::fromLatin1(address);
    v.ownerId = ownerId;
    return v;
}

#endif
