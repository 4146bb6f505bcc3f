// The per-station store's lookup. extendList holds the entries in order of
// creation; the flat index beside it finds a key's entry and holds a copy of
// the bytes readers need, so reading a value does not walk or even touch the
// list. Both are changed only here.
#include "store.h"

#include "../driver/driver_object.h"

namespace {

ExtendValue valueOf(int index, const QByteArray &data)
{
    const int n = data.size() < 2 ? data.size() : 2;
    ExtendValue v = {index, (unsigned char)n, {0, 0}};
    for (int i = 0; i < n; ++i)
        v.bytes[i] = (unsigned char)data.at(i);
    return v;
}

// Builds the index from the list; the first entry of a key wins, as a walk
// from index 0 would find it.
void rebuildExtendIndex()
{
    Quorvel_RV_Series &d = PLC_driver;
    d.extendIndex.clear();
    for (int i = 0; i < d.extendList.size(); ++i) {
        const EXTENDVAR &e = d.extendList.at(i);
        const ExtendKey key = {e.station, e.areaType, e.address};
        if (!d.extendIndex.find(key))
            *d.extendIndex.insert(key, i) = valueOf(i, e.data);
    }
}

// Data of a new entry: four zero bytes, shared by every entry until one is
// written, so that keys a screen only asked for cost no bytes of their own.
const QByteArray &freshData()
{
    static const QByteArray zeros(4, '\0');
    return zeros;
}

ExtendValue &entryFor(int station, int areaType, int address)
{
    Quorvel_RV_Series &d = PLC_driver;
    const ExtendKey key = {station, areaType, address};
    // An entry appended to the list from outside is taken in here.
    if (d.extendIndex.size() != d.extendList.size())
        rebuildExtendIndex();
    if (ExtendValue *v = d.extendIndex.find(key))
        return *v;

    EXTENDVAR entry;
    entry.station = station;
    entry.areaType = areaType;
    entry.address = address;
    entry.data = freshData();
    d.extendList.append(entry);
    const int index = d.extendList.size() - 1;
    ExtendValue *v = d.extendIndex.insert(key, index);
    *v = valueOf(index, entry.data);
    return *v;
}

}  // namespace

int ExtendFindSameVar(int station, int areaType, int address)
{
    return entryFor(station, areaType, address).index;
}

ExtendValue extendEntry(int station, int areaType, int address)
{
    return entryFor(station, areaType, address);
}

void setExtendData(int station, int areaType, int address, const char *bytes, int n)
{
    ExtendValue &v = entryFor(station, areaType, address);
    // Reuses the entry's own storage once it has some.
    QByteArray &data = PLC_driver.extendList[v.index].data;
    data.resize(n);
    for (int i = 0; i < n; ++i)
        data[i] = bytes[i];
    v = valueOf(v.index, data);
}
