// Moves values between the runtime's byte formats and the local-area
// blocks. They neither lock nor check capacity: callers hold areaMutex and
// keep start/count inside the block with clampToArea. The save functions
// are placed by the frame answered and stay inside the area of its request
// by themselves.
#ifndef QUORVEL_RV_ACCESSORS_H
#define QUORVEL_RV_ACCESSORS_H

#include <QByteArray>

#include "../driver/export.h"
#include "../driver/records.h"

RV_EXPORT void GetBit_unsigned_char(QByteArray &out, unsigned char *bits, int start, int count);
RV_EXPORT void GetBit_unsigned_short(QByteArray &out, unsigned short *bits, int start, int count);
RV_EXPORT void GetWord_unsigned_short(QByteArray &out, unsigned short *words, int start, int count);
RV_EXPORT void GetWord_32Bit(QByteArray &out, unsigned short *words, int start, int count);
RV_EXPORT void SetBit_unsigned_char(int start, unsigned char *bits, QByteArray *in, int count);
RV_EXPORT void SetBit_unsigned_short(int start, unsigned short *bits, QByteArray *in, int count);
RV_EXPORT void SetValue_unsigned_short(int start, unsigned short *words, QByteArray *in, int count);
RV_EXPORT void SetValue_32Bit(int start, unsigned short *words, QByteArray *in, int count);
// The reply to the frame in flight into a block, nothing when none is;
// defined with the frame in flight (driver/frame_in_flight.cpp).
RV_EXPORT void SaveBit_unsigned_char(QByteArray *reply, unsigned char *bits);
RV_EXPORT void SaveWord_unsigned_short(QByteArray *reply, unsigned short *words);

// The reply to `head` into a block.
void saveReplyBits(const Protocol &head, const QByteArray *reply, unsigned char *bits);
void saveReplyWords(const Protocol &head, const QByteArray *reply, unsigned short *words);

#endif
