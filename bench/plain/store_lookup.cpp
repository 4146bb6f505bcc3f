// Baseline for the benchmarks only: the per-station store's lookup as a
// walk of extendList from the front, each new entry with its own 4 zero
// bytes, and every value read from the entry itself.
#include "driver/driver_object.h"
#include "localarea/store.h"

int ExtendFindSameVar(int station, int areaType, int address)
{
    QList<EXTENDVAR> &list = PLC_driver.extendList;
    for (int i = 0; i < list.size(); ++i) {
        const EXTENDVAR &e = list.at(i);
        if (e.station == station && e.areaType == areaType && e.address == address)
            return i;
    }
    EXTENDVAR entry;
    entry.station = station;
    entry.areaType = areaType;
    entry.address = address;
    entry.data = QByteArray(4, '\0');
    list.append(entry);
    return list.size() - 1;
}

ExtendValue extendEntry(int station, int areaType, int address)
{
    const int index = ExtendFindSameVar(station, areaType, address);
    const QByteArray &data = PLC_driver.extendList.at(index).data;
    const int n = data.size() < 2 ? data.size() : 2;
    ExtendValue v = {index, (unsigned char)n, {0, 0}};
    for (int i = 0; i < n && i < 2; ++i)
        v.bytes[i] = (unsigned char)data.at(i);
    return v;
}

void setExtendData(int station, int areaType, int address, const char *bytes, int n)
{
    QByteArray &data = PLC_driver.extendList[ExtendFindSameVar(station, areaType, address)].data;
    data = QByteArray(bytes, n);
}
