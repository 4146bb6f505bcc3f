#include "checksum.h"

#include "wrapping.h"

namespace {

// CRC-16/MODBUS sixteen bytes per step ("slicing"): row k gives the
// remainder of a byte followed by k zero bytes, so the bytes of a step are
// looked up independently of each other. The rows are built by the
// compiler from the polynomial, so there is no table to copy wrong.
const int kRows = 16;

struct CrcRows {
    unsigned short row[kRows][256];
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
    for (int k = 1; k < kRows; ++k)
        for (unsigned int i = 0; i < 256; ++i) {
            const unsigned int prev = r.row[k - 1][i];
            r.row[k][i] = static_cast<unsigned short>((prev >> 8) ^ r.row[0][prev & 0xFF]);
        }
    return r;
}

constexpr CrcRows kCrc = makeCrcRows();

// The CRC after n more bytes (n 2..kRows): the first two meet the CRC's
// two bytes, the others stand alone.
template <int n>
inline unsigned int crcStep(unsigned int crc, const unsigned char *p)
{
    crc ^= p[0] | static_cast<unsigned int>(p[1]) << 8;
    unsigned int next = kCrc.row[n - 1][crc & 0xFF] ^ kCrc.row[n - 2][crc >> 8];
    for (int i = 2; i < n; ++i)
        next ^= kCrc.row[n - 1 - i][p[i]];
    return next;
}

}  // namespace

int CalCRC(unsigned char *data, unsigned short count)
{
    unsigned int crc = 0xFFFF;
    // A missing buffer checks as no bytes at all.
    if (!data)
        return static_cast<int>(crc);
    const unsigned char *p = data;
    unsigned int left = count;
    for (; left >= 16; left -= 16, p += 16)
        crc = crcStep<16>(crc, p);
    // The rest, at most 15 bytes, in at most four steps.
    if (left >= 8) {
        crc = crcStep<8>(crc, p);
        p += 8;
        left -= 8;
    }
    if (left >= 4) {
        crc = crcStep<4>(crc, p);
        p += 4;
        left -= 4;
    }
    if (left >= 2) {
        crc = crcStep<2>(crc, p);
        p += 2;
        left -= 2;
    }
    if (left == 1)
        crc = (crc >> 8) ^ kCrc.row[0][(crc ^ *p) & 0xFF];
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
