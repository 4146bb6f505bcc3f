#include "checksum.h"

namespace {

// CRC-16/MODBUS eight bytes per step ("slicing by eight"): row k gives the
// remainder of a byte followed by k zero bytes, so the eight bytes of a step
// are looked up independently. The rows are built by the compiler from the
// polynomial, so there is no table to copy wrong.
struct CrcRows {
    unsigned short row[8][256];
};

constexpr CrcRows makeCrcRows()
{
    CrcRows r{};
    for (unsigned int i = 0; i < 256; ++i) {
        unsigned int crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
        r.row[0][i] = static_cast<unsigned short>(crc);
    }
    for (int k = 1; k < 8; ++k)
        for (unsigned int i = 0; i < 256; ++i) {
            const unsigned int prev = r.row[k - 1][i];
            r.row[k][i] = static_cast<unsigned short>((prev >> 8) ^ r.row[0][prev & 0xFF]);
        }
    return r;
}

constexpr CrcRows kCrc = makeCrcRows();

}  // namespace

int CalCRC(unsigned char *data, unsigned short count)
{
    unsigned int crc = 0xFFFF;
    // A missing buffer checks as no bytes at all.
    if (!data)
        return static_cast<int>(crc);
    const unsigned char *p = data;
    unsigned int left = count;
    const unsigned short(*t)[256] = kCrc.row;
    for (; left >= 8; left -= 8, p += 8) {
        crc ^= p[0] | (unsigned int)(p[1]) << 8;
        crc = t[7][crc & 0xFF] ^ t[6][crc >> 8] ^ t[5][p[2]] ^ t[4][p[3]] ^ t[3][p[4]] ^
              t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
    }
    for (; left > 0; --left, ++p)
        crc = (crc >> 8) ^ t[0][(crc ^ *p) & 0xFF];
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
    return value <= 9 ? value + 48 : value + 55;
}

int ASCIIToDigital(int character)
{
    if (character <= 47 || character == 64)
        return 0;
    if (character <= 63)
        return character - 48;
    return character - 55;
}
