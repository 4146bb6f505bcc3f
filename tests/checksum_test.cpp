// Known answers for the frame checks: the published CRC-16/MODBUS check
// value and frames from Modbus documentation.
#include <gtest/gtest.h>

#include <QByteArray>

#include "driver/checksum.h"

namespace {

int crc(QByteArray b, int n) { return CalCRC(reinterpret_cast<unsigned char *>(b.data()), n); }
int sum(QByteArray b, int n) { return CalSUM(reinterpret_cast<unsigned char *>(b.data()), n); }
int lrc(QByteArray b, int n) { return CalLRC(reinterpret_cast<unsigned char *>(b.data()), n); }
int xorOf(QByteArray b, int n) { return CalXOR(reinterpret_cast<unsigned char *>(b.data()), n); }

}  // namespace

TEST(Checksum, KnownAnswersAndWidths)
{
    EXPECT_EQ(crc("123456789", 9), 0x4B37);
    EXPECT_EQ(crc(QByteArray::fromHex("010300000001"), 6), 0x0A84);
    EXPECT_EQ(crc(QByteArray::fromHex("010100000008"), 6), 0xCC3D);
    EXPECT_EQ(crc(QByteArray::fromHex("010300000001840A"), 8), 0);  // frame + its CRC
    EXPECT_EQ(crc("", 0), 0xFFFF);
    // Counts past 255 must not wrap inside the loop.
    EXPECT_NE(crc(QByteArray(300, 'Z'), 300), crc(QByteArray(300, 'Z'), 256));

    EXPECT_EQ(sum(QByteArray(300, char(0xFF)), 300), 10964);  // 76500 mod 65536
    EXPECT_EQ(lrc(QByteArray::fromHex("010300000001"), 6), 251);
    EXPECT_EQ(lrc(QByteArray::fromHex("8080"), 2), 256);  // not reduced to 0
    EXPECT_EQ(lrc("", 0), 256);
    EXPECT_EQ(xorOf(QByteArray::fromHex("1234"), 1), 0x12);
    EXPECT_EQ(xorOf(QByteArray::fromHex("1234"), 0), 0x12);
    EXPECT_EQ(xorOf(QByteArray::fromHex("1234"), 2), 0x26);
}

TEST(Checksum, HexDigitConversions)
{
    EXPECT_EQ(DigitalToASCII(9), '9');
    EXPECT_EQ(DigitalToASCII(10), 'A');
    EXPECT_EQ(DigitalToASCII(15), 'F');
    EXPECT_EQ(DigitalToASCII(-1), 47);
    EXPECT_EQ(ASCIIToDigital('9'), 9);
    EXPECT_EQ(ASCIIToDigital(':'), 10);
    EXPECT_EQ(ASCIIToDigital('F'), 15);
    EXPECT_EQ(ASCIIToDigital('@'), 0);
    EXPECT_EQ(ASCIIToDigital(' '), 0);
    EXPECT_EQ(ASCIIToDigital('a'), 42);  // lower case is not folded
}
