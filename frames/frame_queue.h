// What every frame builder does once its frame is complete: queue it with
// the description of the expected reply.
#ifndef QUORVEL_RV_FRAME_QUEUE_H
#define QUORVEL_RV_FRAME_QUEUE_H

#include <QByteArray>

#include "../driver/records.h"

// Appends the Protocol for `frame` to the send queue; true, for the
// builders to pass on as "a frame was queued".
bool queueFrame(const RW_VAR &var, const QByteArray &frame, int replyLength, int headerLength,
                int dataLength);

// Queues a read of `count` units answered as the controller's read reply:
// header of 3, the data bytes, the CRC.
bool queueReadFrame(const RW_VAR &var, const QByteArray &frame, bool bitArea);

#endif
