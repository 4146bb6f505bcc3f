// Read replies and write values into the shared mirror or the per-station
// store, and the store's lookup.
#include "store.h"

#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "accessors.h"
#include "reply_span.h"
#include "storage_mode.h"

namespace {

// Builds the index from the list; the first entry of a key wins, as a walk
// from index 0 would find it.
void rebuildExtendIndex()
{
    Quorvel_RV_Series &d = PLC_driver;
    d.extendIndex.clear();
    d.extendIndex.reserve(d.extendList.size());
    for (int i = 0; i < d.extendList.size(); ++i) {
        const EXTENDVAR &e = d.extendList.at(i);
        const ExtendKey key = {e.station, e.areaType, e.address};
        if (!d.extendIndex.contains(key))
            d.extendIndex.insert(key, i);
    }
}

bool holdsKey(int index, const ExtendKey &key)
{
    const QList<EXTENDVAR> &list = PLC_driver.extendList;
    if (index < 0 || index >= list.size())
        return false;
    const EXTENDVAR &e = list.at(index);
    return e.station == key.station && e.areaType == key.areaType && e.address == key.address;
}

// Makes an entry's data exactly the given bytes, reusing its storage.
void setData(EXTENDVAR &e, const char *bytes, int n)
{
    e.data.resize(n);
    for (int i = 0; i < n; ++i)
        e.data[i] = bytes[i];
}

void saveToStationStore(const QByteArray &reply, const Protocol &head)
{
    const int t = head.var.areaType;
    const int s = head.var.station;
    const bool bits = isBitArea(t);
    ReplySpan span;
    if (!replySpan(t, head.var.address, bits ? head.replyDataLength : head.replyDataLength / 2, span))
        return;
    const long long h = head.replyHeaderLength;
    const long long size = reply.size();
    const char *r = reply.constData();
    QList<EXTENDVAR> &list = PLC_driver.extendList;
    for (int u = 0; u < span.units; ++u) {
        // A stored unit replaces the entry's data whole; a unit missing from
        // a short reply leaves the entry empty, so it reads as zero.
        if (bits) {
            EXTENDVAR &e = list[ExtendFindSameVar(s, t, span.first + 8 * u)];
            const long long at = h + span.skip + u;
            if (at >= 0 && at < size)
                setData(e, r + at, 1);
            else
                e.data.clear();
        } else {
            EXTENDVAR &e = list[ExtendFindSameVar(s, t, span.first + u)];
            const long long at = h + 2LL * (span.skip + u);
            if (at >= 0 && at + 1 < size) {
                const char lowFirst[2] = {r[at + 1], r[at]};
                setData(e, lowFirst, 2);
            } else {
                e.data.clear();
            }
        }
    }
}

void writeToStationStore(const RW_VAR &var, int count)
{
    const int t = var.areaType;
    const int s = var.station;
    const int a = var.address;
    const QByteArray &v = var.value;
    QList<EXTENDVAR> &list = PLC_driver.extendList;
    if (isWordArea(t)) {
        const int words = qMin(count, v.size() / 2);
        for (int k = 0; k < words; ++k)
            setData(list[ExtendFindSameVar(s, t, a + k)], v.constData() + 2 * k, 2);
        return;
    }
    for (int j = 0; j < count; ++j) {
        const int element = a + j;
        EXTENDVAR &e = list[ExtendFindSameVar(s, t, element & ~7)];
        // A group that a reply left without data stays without data.
        if (e.data.isEmpty() || j >= v.size())
            continue;
        unsigned char group = (unsigned char)e.data.at(0);
        const unsigned char mask = (unsigned char)(1u << (element & 7));
        group = v.at(j) == 1 ? (group | mask) : (group & (unsigned char)~mask);
        const char byte = char(group);
        setData(e, &byte, 1);
    }
}

}  // namespace

int ExtendFindSameVar(int station, int areaType, int address)
{
    Quorvel_RV_Series &d = PLC_driver;
    const ExtendKey key = {station, areaType, address};
    // The index is trusted only while it matches the list it describes.
    if (d.extendIndex.size() != d.extendList.size())
        rebuildExtendIndex();
    QHash<ExtendKey, int>::const_iterator it = d.extendIndex.constFind(key);
    if (it != d.extendIndex.constEnd() && !holdsKey(it.value(), key)) {
        rebuildExtendIndex();
        it = d.extendIndex.constFind(key);
    }
    if (it != d.extendIndex.constEnd())
        return it.value();

    EXTENDVAR entry;
    entry.station = station;
    entry.areaType = areaType;
    entry.address = address;
    entry.data = QByteArray(4, '\0');
    d.extendList.append(entry);
    const int index = d.extendList.size() - 1;
    d.extendIndex.insert(key, index);
    return index;
}

void SaveToLocalDataErea(QByteArray *reply)
{
    Quorvel_RV_Series &d = PLC_driver;
    if (!reply || d.sendQueue.isEmpty())
        return;
    const Protocol &head = d.sendQueue.at(0);
    const int t = head.var.areaType;
    if (!isArea(t))
        return;
    if (stationStoreInUse()) {
        saveToStationStore(*reply, head);
    } else if (isBitArea(t)) {
        SaveBit_unsigned_char(reply, bitBlock(d.localArea, t));
    } else {
        SaveWord_unsigned_short(reply, wordBlock(d.localArea, t));
    }
}

void WriteDataToLocal(RW_VAR *var)
{
    if (!var)
        return;
    Quorvel_RV_Series &d = PLC_driver;
    MutexHold hold(d.areaMutex);
    const int t = var->areaType;
    int count = var->count;
    if (!clampToArea(t, var->address, count))
        return;
    if (stationStoreInUse())
        writeToStationStore(*var, count);
    else if (isBitArea(t))
        SetBit_unsigned_char(var->address, bitBlock(d.localArea, t), &var->value, count);
    else
        SetValue_unsigned_short(var->address, wordBlock(d.localArea, t), &var->value, count);
}
