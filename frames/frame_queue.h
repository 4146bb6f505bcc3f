// What every frame builder does once its bytes are laid out: close the frame
// with its check and queue it with the description of the expected reply.
#ifndef QUORVEL_RV_FRAME_QUEUE_H
#define QUORVEL_RV_FRAME_QUEUE_H

#include <QByteArray>

#include "../driver/records.h"

// Quantities travel as 16-bit fields. Larger counts are cut to 16 bits on the
// wire as the controller format has it (the controller then refuses the
// frame and the runtime sees the error code); only counts that no 16-bit
// field could describe at all are refused.
enum { MaxFrameQuantity = 0xFFFF };

// Appends the CRC-16 of the whole frame, low byte first as Modbus RTU sends it.
void appendCrc(QByteArray &frame);

// Appends `value` high byte first, `bytes` bytes wide (2 or 4).
void appendBigEndian(QByteArray &frame, unsigned int value, int bytes);

// `value` byte `index`, or 0 when the request carries fewer bytes: a short
// value is sent padded with zeros, never read past its end.
unsigned char valueByte(const RW_VAR &var, int index);

// Data bytes of the reply to a read of `count` units (bytes for bit areas,
// registers otherwise), or -1 when no frame can ask for them: a negative
// count, or one whose quantity exceeds 16 bits. Such a request gets no
// frame, and the scheduler drops a request without one.
int readDataBytes(bool bitArea, int count);

// Appends the Protocol for `frame` to the send queue. `countFrames` resets
// ComInfo framesDone to 0 and sets framesPerRequest to 1.
void queueFrame(const RW_VAR &var, const QByteArray &frame, int replyLength, int headerLength,
                int dataLength, bool countFrames);

#endif
