// Builders that turn one request into at most one queued Protocol on
// sendQueue, each saying whether it queued one. Called with listMutex held
// and sendQueue empty. The runtime's exported builders
// (driver/frame_builders.h) wrap them and keep ComInfo's frame counters.
#ifndef QUORVEL_RV_FRAMES_H
#define QUORVEL_RV_FRAMES_H

#include "../driver/records.h"

bool buildRead(RW_VAR *var);       // by area: bits or words
bool buildReadBits(RW_VAR *var);   // 0x01, count in bytes
bool buildReadWords(RW_VAR *var);  // 0x03

// Writes also keep the local area, framed or not, while the link is up.
bool buildWrite(RW_VAR *var);       // by area: bit or words
bool buildWriteBit(RW_VAR *var);    // 0x05
bool buildWriteWords(RW_VAR *var);  // 0x06 or 0x10

bool buildRemoteRead(RW_VAR *var);
bool buildRemoteWrite(RW_VAR *var);  // keeps the local area too

#endif
