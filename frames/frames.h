// Builders that turn one request into one queued Protocol on sendQueue.
// Called by the scheduler with listMutex held and sendQueue empty.
#ifndef QUORVEL_RV_FRAMES_H
#define QUORVEL_RV_FRAMES_H

#include "../driver/export.h"
#include "../driver/records.h"

RV_EXPORT void ReadRegister(RW_VAR *var);
RV_EXPORT void ReadBool(RW_VAR *var);
RV_EXPORT void ReadAnalog(RW_VAR *var);

RV_EXPORT void WriteRegister(RW_VAR *var);
RV_EXPORT void WriteBool(RW_VAR *var);
RV_EXPORT void WriteAnalog(RW_VAR *var);

RV_EXPORT void Remote_ReadVar(RW_VAR *var);
RV_EXPORT void Remote_WriteVar(RW_VAR *var);

#endif
