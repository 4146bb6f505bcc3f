// Key of the per-station store, for the index kept beside extendList.
#ifndef QUORVEL_RV_EXTEND_KEY_H
#define QUORVEL_RV_EXTEND_KEY_H

#include <QHash>

struct ExtendKey {
    int station;
    int areaType;
    int address;
};

inline bool operator==(const ExtendKey &a, const ExtendKey &b)
{
    return a.station == b.station && a.areaType == b.areaType && a.address == b.address;
}

inline uint qHash(const ExtendKey &k)
{
    uint h = uint(k.station) * 0x9E3779B1u;
    h ^= uint(k.areaType) + 0x7F4A7C15u + (h << 6) + (h >> 2);
    h ^= uint(k.address) + 0x85EBCA6Bu + (h << 6) + (h >> 2);
    return h;
}

#endif
