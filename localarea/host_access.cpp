// The runtime's direct reads and writes of controller values: reads come
// from the local area at once, writes are queued for the controller or, in
// local-only mode, applied to the local area alone.
#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../lists/pieces.h"
#include "accessors.h"
#include "store.h"

namespace {

enum { QueueWrites = 2 };

// Queues one write; while the controller is not answering, the frame
// builder leaves the local area alone, so the value is applied here.
int queueWrite(RW_VAR &request)
{
    const int pending = AddListWriteVar(&request, 0);
    if (commErrorSet())
        WriteDataToLocal(&request);
    return pending;
}

void readStationBits(QByteArray &out, int station, int areaType, int start, int count)
{
    char *o = out.data();
    int group = -1;
    unsigned char groupBits = 0;
    for (int i = 0; i < count; ++i) {
        const int element = start + i;
        if ((element & ~7) != group) {
            group = element & ~7;
            const ExtendValue v = extendEntry(station, areaType, group);
            groupBits = v.size == 0 ? 0 : v.bytes[0];
        }
        o[i] = char((groupBits >> (element & 7)) & 1);
    }
}

void readStationWords(QByteArray &out, int station, int areaType, int start, int count)
{
    char *o = out.data();
    for (int k = 0; k < count; ++k) {
        const ExtendValue v = extendEntry(station, areaType, start + k);
        const bool whole = v.size >= 2;
        o[2 * k] = whole ? char(v.bytes[0]) : 0;
        o[2 * k + 1] = whole ? char(v.bytes[1]) : 0;
    }
}

}  // namespace

extern "C" {

int GetRegisterData(QString, int areaType, QString addressText, int station, QByteArray *out,
                    int count)
{
    const int start = StringAddressToInt(areaType, addressText);
    if (start < 0 || !out)
        return 0;
    // Nothing to read (no area, count below 1, start past the end) leaves
    // the array as it was; a range past the end is cut there.
    if (!clampToArea(areaType, start, count))
        return 1;

    Quorvel_RV_Series &d = PLC_driver;
    MutexHold hold(d.areaMutex);
    if (!usesStationStore(activeComInfo())) {
        if (isBitArea(areaType))
            GetBit_unsigned_char(*out, bitBlock(d.localArea, areaType), start, count);
        else
            GetWord_unsigned_short(*out, wordBlock(d.localArea, areaType), start, count);
        return 1;
    }
    const int bytes = isBitArea(areaType) ? count : 2 * count;
    if (out->size() < bytes)
        out->resize(bytes);
    if (isBitArea(areaType))
        readStationBits(*out, station, areaType, start, count);
    else
        readStationWords(*out, station, areaType, start, count);
    return 1;
}

int SetRegisterData(QString areaName, int areaType, QString addressText, int station,
                    QByteArray *value, int count, int ownerType, int ownerId)
{
    const int start = StringAddressToInt(areaType, addressText);
    if (start < 0 || !value)
        return 0;
    const ComInfo &info = activeComInfo();

    RW_VAR request;
    request.ownerType = ownerType;
    request.ownerId = ownerId;
    request.rwMode = 1;
    request.remoteLink = info.remoteLink;
    request.linkNo = info.localLinkNo;
    request.areaName = areaName;
    request.addressText = addressText;
    request.areaType = areaType;
    request.station = info.multiStation ? station : info.defaultStation;

    if (info.writeMode != QueueWrites) {
        request.address = start;
        request.count = count;
        clampToArea(areaType, start, request.count);
        request.value = *value;
        WriteDataToLocal(&request);
        return 1;
    }

    if (!takesQueuedWrite(areaType) || !clampToArea(areaType, start, count))
        return 0;
    const bool bits = isBitArea(areaType);

    int pending = 0;
    if (bits) {
        // One single-bit write per element, missing value bytes as 0.
        for (int i = 0; i < count; ++i) {
            request.address = start + i;
            request.count = 1;
            request.value = QByteArray(1, i < value->size() ? value->at(i) : '\0');
            pending = queueWrite(request);
        }
        return pending;
    }

    // Words go in blocks of blockUnits; a block size below 1 means one
    // block for the whole count.
    const int unit = info.blockUnits > 0 ? info.blockUnits : count;
    cutPieces(start, 1, count, unit, [&](int address, int words) {
        request.address = address;
        request.count = words;
        request.value = QByteArray(2 * words, '\0');
        const int from = 2 * (address - start);
        const int available = qMin(2 * words, value->size() - from);
        for (int i = 0; i < available; ++i)
            request.value[i] = value->at(from + i);
        pending = queueWrite(request);
        return true;
    });
    return pending;
}

}  // extern "C"
