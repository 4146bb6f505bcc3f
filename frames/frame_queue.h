// What every frame builder does once its bytes are laid out: close the frame
// with its check and queue it with the description of the expected reply.
#ifndef QUORVEL_RV_FRAME_QUEUE_H
#define QUORVEL_RV_FRAME_QUEUE_H

#include <QByteArray>

#include "../driver/records.h"

// Appends the CRC-16 of the whole frame, low byte first as Modbus RTU sends it.
void appendCrc(QByteArray &frame);

// Appends `value` high byte first, `bytes` bytes wide (2 or 4).
void appendBigEndian(QByteArray &frame, unsigned int value, int bytes);

// `value` byte `index`, or 0 when the request carries fewer bytes: a short
// value is sent padded with zeros, never read past its end.
unsigned char valueByte(const RW_VAR &var, int index);

// Data bytes of the reply to a read of `count` units: count for bit areas,
// 2 x count for registers, whatever the count (modulo 2^32). The frame
// carries the quantity in 16 bits, the reply description the full count.
int readDataBytes(bool bitArea, int count);

// Queues a read of `count` units answered as the controller's read reply:
// header of 3, the data bytes, the CRC.
void queueReadFrame(const RW_VAR &var, const QByteArray &frame, bool bitArea);

// Appends the Protocol for `frame` to the send queue. `countFrames` resets
// ComInfo framesDone to 0 and sets framesPerRequest to 1.
void queueFrame(const RW_VAR &var, const QByteArray &frame, int replyLength, int headerLength,
                int dataLength, bool countFrames);

#endif
