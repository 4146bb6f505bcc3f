// The one driver object and everything it knows.
#ifndef QUORVEL_RV_DRIVER_OBJECT_H
#define QUORVEL_RV_DRIVER_OBJECT_H

#include <QHash>
#include <QList>
#include <QMutex>

#include "../localarea/extend_key.h"
#include "../localarea/local_area.h"
#include "quorvel_rv_series.h"

// List the request in flight came from.
enum { KindRead = 0, KindWrite = 1, KindOnceRead = 2, KindNone = 100 };

class RV_EXPORT Quorvel_RV_Series {
public:
    Quorvel_RV_Series();
    ~Quorvel_RV_Series();

    ComInfo *comInfo;
    QList<RW_VAR> readList;
    QList<RW_VAR> writeList;
    QList<RW_VAR> onceReadList;
    QList<Protocol> sendQueue;
    QList<EXTENDVAR> extendList;
    HostCallBack callback;
    int callbackArg;
    QMutex listMutex;  // lists, currentKind, burst counters, result code
    QMutex areaMutex;  // localArea, extendList; taken after listMutex only
    RW_VAR result;
    int currentKind;
    int writeBurst;
    int onceBurst;
    int scanCounter;
    bool commError;
    LocalArea localArea;
    // Index of extendList by key, kept in step with it, holding the bytes
    // readers need, so that reading a stored value neither walks the store
    // nor touches the list.
    ExtendIndex extendIndex;

private:
    Quorvel_RV_Series(const Quorvel_RV_Series &);
    Quorvel_RV_Series &operator=(const Quorvel_RV_Series &);
};

extern RV_EXPORT Quorvel_RV_Series PLC_driver;

// commError is set by the communication thread and read by the runtime's
// other threads (SetRegisterData); always go through these two.
inline bool commErrorSet()
{
    return __atomic_load_n(&PLC_driver.commError, __ATOMIC_RELAXED);
}
inline void setCommError(bool on)
{
    __atomic_store_n(&PLC_driver.commError, on, __ATOMIC_RELAXED);
}

// The runtime's record; before SetComInfo the driver behaves as with an
// all-zero record: shared mirror, local-only writes, station 0.
inline const ComInfo &activeComInfo()
{
    static const ComInfo none;
    return PLC_driver.comInfo ? *PLC_driver.comInfo : none;
}

RV_EXPORT void passRetValue(const RW_VAR &source, RW_VAR &destination);
RV_EXPORT int StringAddressToInt(int areaType, QString addressText);

// Reply processing.
RV_EXPORT int DealDataOfLocalArea(QByteArray *reply, int length);
RV_EXPORT int DealDataOfRemoteArea(QByteArray *reply, int length);
RV_EXPORT int CheckGetData(QByteArray *reply, int length);
RV_EXPORT int GetDriverReturnValue(int outcome);
RV_EXPORT int SwitchErrorReturn(int base);

#endif
