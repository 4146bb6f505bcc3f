// Checksums over a byte buffer and hex digit conversions.
#ifndef QUORVEL_RV_CHECKSUM_H
#define QUORVEL_RV_CHECKSUM_H

#include "export.h"

RV_EXPORT int CalCRC(unsigned char *data, unsigned short count);  // CRC-16/MODBUS
RV_EXPORT int CalSUM(unsigned char *data, unsigned short count);
RV_EXPORT int CalLRC(unsigned char *data, unsigned short count);
RV_EXPORT int CalXOR(unsigned char *data, unsigned short count);
RV_EXPORT int DigitalToASCII(int value);
RV_EXPORT int ASCIIToDigital(int character);

#endif
