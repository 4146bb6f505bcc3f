// Storing read replies and write values in the mirror or per-station store.
#ifndef QUORVEL_RV_STORE_H
#define QUORVEL_RV_STORE_H

#include "../driver/export.h"
#include "../driver/records.h"
#include "extend_key.h"

// Non-zero multiStation keeps each station's values apart in extendList.
inline bool usesStationStore(const ComInfo &info)
{
    return info.multiStation != 0;
}

// Caller holds areaMutex. Stores the reply to `head` (DataCom's frame in
// flight) in the mirror or the per-station store, as `info` says.
void saveReply(const Protocol &head, const ComInfo &info, QByteArray *reply);
// The same for the frame in flight and the runtime's record; defined with
// the frame in flight (driver/frame_in_flight.cpp).
RV_EXPORT void SaveToLocalDataErea(QByteArray *reply);
// Takes areaMutex itself.
RV_EXPORT void WriteDataToLocal(RW_VAR *var);
// Caller holds areaMutex. Index of the entry for the key, created if new.
RV_EXPORT int ExtendFindSameVar(int station, int areaType, int address);
// Caller holds areaMutex. The entry for the key, created if new: its index
// and the first bytes of its data.
ExtendValue extendEntry(int station, int areaType, int address);
// Caller holds areaMutex. Makes the data of the key's entry exactly the
// n bytes given (n 0..2), creating the entry if new.
void setExtendData(int station, int areaType, int address, const char *bytes, int n);

#endif
