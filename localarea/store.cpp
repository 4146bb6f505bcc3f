// Read replies and write values into the shared mirror or the per-station
// store (whose lookup is store_lookup.cpp).
#include "store.h"

#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "accessors.h"
#include "reply_span.h"

namespace {

void saveToStationStore(const QByteArray &reply, const Protocol &head)
{
    const int t = head.var.areaType;
    const int s = head.var.station;
    const bool bits = isBitArea(t);
    ReplySpan span;
    if (!replySpan(t, head.var.address, bits ? head.replyDataLength : head.replyDataLength / 2,
                   span))
        return;
    const long long h = head.replyHeaderLength;
    const long long size = reply.size();
    const char *r = reply.constData();
    for (int u = 0; u < span.units; ++u) {
        // A stored unit replaces the entry's data whole; a unit missing from
        // a short reply leaves the entry empty, so it reads as zero.
        if (bits) {
            const long long at = h + span.skip + u;
            const bool held = at >= 0 && at < size;
            setExtendData(s, t, span.first + 8 * u, held ? r + at : nullptr, held ? 1 : 0);
        } else {
            const long long at = h + 2LL * (span.skip + u);
            const bool held = at >= 0 && at + 1 < size;
            const char lowFirst[2] = {held ? r[at + 1] : char(0), held ? r[at] : char(0)};
            setExtendData(s, t, span.first + u, lowFirst, held ? 2 : 0);
        }
    }
}

void writeToStationStore(const RW_VAR &var, int count)
{
    const int t = var.areaType;
    const int s = var.station;
    const int a = var.address;
    const QByteArray &v = var.value;
    if (isWordArea(t)) {
        const int words = qMin(count, v.size() / 2);
        for (int k = 0; k < words; ++k)
            setExtendData(s, t, a + k, v.constData() + 2 * k, 2);
        return;
    }
    for (int j = 0; j < count; ++j) {
        const int element = a + j;
        const ExtendValue e = extendEntry(s, t, element & ~7);
        // A group that a reply left without data stays without data.
        if (e.size == 0 || j >= v.size())
            continue;
        unsigned char group = e.bytes[0];
        const unsigned char mask = (unsigned char)(1u << (element & 7));
        group = v.at(j) == 1 ? (group | mask) : (group & (unsigned char)~mask);
        const char byte = char(group);
        setExtendData(s, t, element & ~7, &byte, 1);
    }
}

}  // namespace

void saveReply(const Protocol &head, const ComInfo &info, QByteArray *reply)
{
    Quorvel_RV_Series &d = PLC_driver;
    const int t = head.var.areaType;
    if (!reply || !isArea(t))
        return;
    if (usesStationStore(info)) {
        saveToStationStore(*reply, head);
    } else if (isBitArea(t)) {
        saveReplyBits(head, reply, bitBlock(d.localArea, t));
    } else {
        saveReplyWords(head, reply, wordBlock(d.localArea, t));
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
    if (usesStationStore(activeComInfo()))
        writeToStationStore(*var, count);
    else if (isBitArea(t))
        SetBit_unsigned_char(var->address, bitBlock(d.localArea, t), &var->value, count);
    else
        SetValue_unsigned_short(var->address, wordBlock(d.localArea, t), &var->value, count);
}
