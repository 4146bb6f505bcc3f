// The frame builders as the runtime's layout exports them, and the two the
// scheduler calls, which also say whether a frame was queued.
#ifndef QUORVEL_RV_FRAME_BUILDERS_H
#define QUORVEL_RV_FRAME_BUILDERS_H

#include "export.h"
#include "records.h"

RV_EXPORT void ReadRegister(RW_VAR *var);
RV_EXPORT void ReadBool(RW_VAR *var);
RV_EXPORT void ReadAnalog(RW_VAR *var);

RV_EXPORT void WriteRegister(RW_VAR *var);
RV_EXPORT void WriteBool(RW_VAR *var);
RV_EXPORT void WriteAnalog(RW_VAR *var);

RV_EXPORT void Remote_ReadVar(RW_VAR *var);
RV_EXPORT void Remote_WriteVar(RW_VAR *var);

// Frames `var` for the link (`remote` or the controller's); true when a
// frame was queued. Run with listMutex held and sendQueue empty.
bool frameRead(RW_VAR *var, bool remote);
bool frameWrite(RW_VAR *var, bool remote);

#endif
