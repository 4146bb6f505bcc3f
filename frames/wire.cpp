#include "wire.h"

#include "../driver/checksum.h"
#include "../driver/wrapping.h"

void appendCrc(QByteArray &frame)
{
    const int crc = CalCRC(reinterpret_cast<unsigned char *>(frame.data()),
                           static_cast<unsigned short>(frame.size()));
    frame.append(static_cast<char>(crc & 0xFF));
    frame.append(static_cast<char>((crc >> 8) & 0xFF));
}

void appendBigEndian(QByteArray &frame, unsigned int value, int bytes)
{
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        frame.append(static_cast<char>((value >> shift) & 0xFF));
}

unsigned char valueByte(const RW_VAR &var, int index)
{
    return index >= 0 && index < var.value.size() ? static_cast<unsigned char>(var.value.at(index))
                                                  : 0;
}

int readDataBytes(bool bitArea, int count)
{
    return bitArea ? count : wrappingTimes(2, count);
}
