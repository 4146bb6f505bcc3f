// The runtime's interface to the driver: the records and the entry points
// that a runtime looks up by name after loading libQuorvel_RV_Series.so.1.
#ifndef QUORVEL_RV_SERIES_H
#define QUORVEL_RV_SERIES_H

#include "export.h"
#include "records.h"

// The controller's element areas by name, as the area type that the records
// (areaType), GetRegisterData, SetRegisterData and PLCAddressChangeIntef
// take: GetRegisterData(QString(), RvArea::D, "100", 1, &out, 2). X to SEM
// hold bits, D to FS words; X and Y are numbered in octal. The driver's own
// area table (localarea/areas.h) is built on these names.
namespace RvArea {
enum Type {
    X = 0,
    Y = 1,
    M = 2,
    S = 3,
    T = 4,
    C = 5,
    ET = 6,
    SM = 7,
    HM = 8,
    HS = 9,
    HT = 10,
    HC = 11,
    HSC = 12,
    SEM = 13,
    D = 14,
    TD = 15,
    CD = 16,
    FD = 17,
    ETD = 18,
    SD = 19,
    HD = 20,
    SFD = 21,
    ID = 22,
    QD = 23,
    HSD = 24,
    FS = 25
};
}  // namespace RvArea

extern "C" {

// Set-up, called before the communication thread starts.
RV_EXPORT void SetComInfo(ComInfo *info);
RV_EXPORT void RegistCallBackFuncIntf(HostCallBack callback, int arg);
RV_EXPORT void FlashLocalRegister(void *lb, void *lw, void *rwi);
RV_EXPORT int AddListReadVar(RW_VAR *var);
RV_EXPORT int QueryFinishFlag();
RV_EXPORT int PLCAddressChangeIntef(int areaType, QString addressText);

// Polling, on the communication thread only, strictly alternating.
RV_EXPORT Protocol *ComCommunication();
RV_EXPORT RW_VAR *DataCom(QByteArray *reply, int length);

// Request lists, from any thread.
RV_EXPORT int AddListWriteVar(RW_VAR *var, int mode);
RV_EXPORT int AddListOnceReadVar(RW_VAR *var, int mode);
RV_EXPORT int ReCreatReadVarList(QList<VarInfo> *vars);

// Data access, from any thread.
RV_EXPORT int GetRegisterData(QString unused, int areaType, QString addressText, int station,
                              QByteArray *out, int count);
RV_EXPORT int SetRegisterData(QString areaName, int areaType, QString addressText, int station,
                              QByteArray *value, int count, int ownerType, int ownerId);

}  // extern "C"

// The runtime's three local-memory pointers, stored by FlashLocalRegister.
extern RV_EXPORT void *LB;
extern RV_EXPORT void *LW;
extern RV_EXPORT void *RWI;

#endif
