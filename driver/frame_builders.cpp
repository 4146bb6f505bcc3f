// The one place the frame counters of ComInfo start over: each frame built
// for a new request is that request's only one. A remote write keeps what
// the previous request left. DataCom counts the frames answered.
#include "frame_builders.h"

#include "driver_object.h"
#include "../frames/frames.h"

namespace {

bool startFrameCount(bool queued)
{
    ComInfo *info = PLC_driver.comInfo;
    if (queued && info) {
        info->framesDone = 0;
        info->framesPerRequest = 1;
    }
    return queued;
}

}  // namespace

bool frameRead(RW_VAR *var, bool remote)
{
    return startFrameCount(remote ? buildRemoteRead(var) : buildRead(var));
}

bool frameWrite(RW_VAR *var, bool remote)
{
    return remote ? buildRemoteWrite(var) : startFrameCount(buildWrite(var));
}

void ReadRegister(RW_VAR *var)
{
    frameRead(var, false);
}
void ReadBool(RW_VAR *var)
{
    startFrameCount(buildReadBits(var));
}
void ReadAnalog(RW_VAR *var)
{
    startFrameCount(buildReadWords(var));
}

void WriteRegister(RW_VAR *var)
{
    frameWrite(var, false);
}
void WriteBool(RW_VAR *var)
{
    startFrameCount(buildWriteBit(var));
}
void WriteAnalog(RW_VAR *var)
{
    startFrameCount(buildWriteWords(var));
}

void Remote_ReadVar(RW_VAR *var)
{
    frameRead(var, true);
}
void Remote_WriteVar(RW_VAR *var)
{
    frameWrite(var, true);
}
