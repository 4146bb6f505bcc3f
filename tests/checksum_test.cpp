// Known answers for the frame checks; the CRC vectors are the published
// CRC-16/MODBUS check value and frames from Modbus documentation.
#include <gtest/gtest.h>

#include <QByteArray>

#include "driver/checksum.h"

namespace {

unsigned char *bytes(QByteArray &b) { return reinterpret_cast<unsigned char *>(b.data()); }

}  // namespace

TEST(Checksum, CrcMatchesModbusVectors)
{
    QByteArray digits("123456789");
    EXPECT_EQ(CalCRC(bytes(digits), 9), 0x4B37);
    QByteArray read = QByteArray::fromHex("010300000001");
    EXPECT_EQ(CalCRC(bytes(read), 6), 0x0A84);
    QByteArray coils = QByteArray::fromHex("010100000008");
    EXPECT_EQ(CalCRC(bytes(coils), 6), 0xCC3D);
    QByteArray ten = QByteArray::fromHex("01030000000A");
    EXPECT_EQ(CalCRC(bytes(ten), 6), 0xCDC5);
    EXPECT_EQ(CalCRC(bytes(digits), 0), 0xFFFF);
    // A frame followed by its own CRC, low byte first, checks to zero.
    read.append(char(0x84)).append(char(0x0A));
    EXPECT_EQ(CalCRC(bytes(read), 8), 0);
    // Counts past 255 must not wrap inside the loop.
    QByteArray big(300, char(0x5A));
    QByteArray head = big.left(256);
    EXPECT_NE(CalCRC(bytes(big), 300), CalCRC(bytes(head), 256));
}

TEST(Checksum, SumLrcXorKeepTheirWidths)
{
    QByteArray ff(300, char(0xFF));
    EXPECT_EQ(CalSUM(bytes(ff), 300), 10964);  // 76500 mod 65536
    EXPECT_EQ(CalSUM(bytes(ff), 0), 0);

    QByteArray read = QByteArray::fromHex("010300000001");
    EXPECT_EQ(CalLRC(bytes(read), 6), 251);
    QByteArray wrap = QByteArray::fromHex("8080");
    EXPECT_EQ(CalLRC(bytes(wrap), 2), 256);
    EXPECT_EQ(CalLRC(bytes(wrap), 0), 256);

    QByteArray x = QByteArray::fromHex("1234");
    EXPECT_EQ(CalXOR(bytes(x), 1), 0x12);
    EXPECT_EQ(CalXOR(bytes(x), 0), 0x12);
    EXPECT_EQ(CalXOR(bytes(x), 2), 0x26);
}

TEST(Checksum, HexDigitConversions)
{
    EXPECT_EQ(DigitalToASCII(0), '0');
    EXPECT_EQ(DigitalToASCII(9), '9');
    EXPECT_EQ(DigitalToASCII(10), 'A');
    EXPECT_EQ(DigitalToASCII(15), 'F');
    EXPECT_EQ(DigitalToASCII(-1), 47);

    EXPECT_EQ(ASCIIToDigital('0'), 0);
    EXPECT_EQ(ASCIIToDigital('9'), 9);
    EXPECT_EQ(ASCIIToDigital(':'), 10);
    EXPECT_EQ(ASCIIToDigital('A'), 10);
    EXPECT_EQ(ASCIIToDigital('F'), 15);
    EXPECT_EQ(ASCIIToDigital('@'), 0);
    EXPECT_EQ(ASCIIToDigital(' '), 0);
    EXPECT_EQ(ASCIIToDigital('a'), 42);  // lower case is not folded
}
