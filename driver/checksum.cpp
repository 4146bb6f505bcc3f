#include "checksum.h"

#include "wrapping.h"

int CalCRC(unsigned char *data, unsigned short count)
{
    // CRC-16 of Modbus RTU, bit by bit: frames are short, and a table would
    // be one more constant to get wrong.
    unsigned int crc = 0xFFFF;
    for (unsigned int i = 0; i < count; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
    }
    return static_cast<int>(crc);
}

int CalSUM(unsigned char *data, unsigned short count)
{
    unsigned int sum = 0;
    for (unsigned int i = 0; i < count; ++i)
        sum += data[i];
    return static_cast<int>(sum & 0xFFFF);
}

int CalLRC(unsigned char *data, unsigned short count)
{
    unsigned int sum = 0;
    for (unsigned int i = 0; i < count; ++i)
        sum += data[i];
    // Not reduced again: a sum ending in 0x00 gives 256, which stored in a
    // byte is still the two's-complement check.
    return static_cast<int>((~sum & 0xFF) + 1);
}

int CalXOR(unsigned char *data, unsigned short count)
{
    // The only one that reads a byte even for count 0: a missing buffer
    // has no first byte to give back.
    if (!data)
        return 0;
    int x = data[0];
    for (unsigned int i = 1; i < count; ++i)
        x ^= data[i];
    return x;
}

int DigitalToASCII(int value)
{
    return wrappingAdd(value, value <= 9 ? 48 : 55);
}

int ASCIIToDigital(int character)
{
    if (character <= 47 || character == 64)
        return 0;
    if (character <= 63)
        return character - 48;
    return character - 55;
}
