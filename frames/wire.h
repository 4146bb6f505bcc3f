// The byte-level pieces every frame is made of.
#ifndef QUORVEL_RV_WIRE_H
#define QUORVEL_RV_WIRE_H

#include <QByteArray>

#include "../driver/records.h"

// Every write is echoed as station, function, address, value or quantity
// and check: eight bytes on either link.
const int writeEchoLength = 8;

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

#endif
