// Small helpers shared by the benchmark programs: a loaded driver with one
// cyclic block read, and controller replies with a correct checksum.
#ifndef RV_BENCH_COMMON_H
#define RV_BENCH_COMMON_H

#include <QByteArray>
#include <QString>

#include "driver/checksum.h"
#include "driver/driver_object.h"
#include "support/driver_reset.h"

namespace bench {

// A read-holding-registers reply of `words` registers from `station`,
// register i holding value `seed + i`, CRC low byte first.
inline QByteArray registerReply(int station, int words, int seed = 0)
{
    QByteArray r;
    r.append(char(station));
    r.append(char(0x03));
    r.append(char(2 * words));
    for (int i = 0; i < words; ++i) {
        const int v = (seed + i) & 0xFFFF;
        r.append(char(v >> 8));
        r.append(char(v & 0xFF));
    }
    const int crc =
        CalCRC(reinterpret_cast<unsigned char *>(r.data()), static_cast<unsigned short>(r.size()));
    r.append(char(crc & 0xFF));
    r.append(char((crc >> 8) & 0xFF));
    return r;
}

// One cyclic block read of `count` units of `areaType` at `address`.
inline RW_VAR blockRead(int areaType, int address, int count, int station)
{
    RW_VAR v;
    v.ownerId = -1;
    v.areaName = QString("D");
    v.addressText = QString::number(address);
    v.areaType = areaType;
    v.address = address;
    v.count = count;
    v.station = station;
    return v;
}

// Address text of a word element (decimal for every word area).
inline QString wordText(int address)
{
    return QString::number(address);
}

}  // namespace bench

#endif
