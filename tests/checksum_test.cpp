// Known answers for the frame checks: the published CRC-16/MODBUS check
// value, a frame from Modbus documentation and the Modbus ASCII LRC of it.
#include <cstdlib>

#include <gtest/gtest.h>

#include <QByteArray>

#include "driver/checksum.h"

TEST(Checksum, KnownAnswersWidthsAndHexDigits)
{
    auto on = [](int (*check)(unsigned char *, unsigned short), QByteArray b, int count) {
        return check(reinterpret_cast<unsigned char *>(b.data()), count);
    };
    EXPECT_EQ(on(CalCRC, "123456789", 9), 0x4B37);
    EXPECT_EQ(on(CalCRC, QByteArray::fromHex("010300000001"), 6), 0x0A84);
    EXPECT_EQ(on(CalCRC, "", 0), 0xFFFF);
    EXPECT_EQ(CalCRC(nullptr, 9), 0xFFFF);
    EXPECT_EQ(on(CalSUM, QByteArray(300, char(0xFF)), 299), 10709);  // 76245 mod 65536
    EXPECT_EQ(on(CalLRC, QByteArray::fromHex("010300000001"), 6), 0xFB);
    EXPECT_EQ(on(CalLRC, QByteArray::fromHex("8080"), 2), 256);  // not reduced to 0
    EXPECT_EQ(on(CalXOR, QByteArray::fromHex("1234"), 2), 0x26);
    EXPECT_EQ(on(CalXOR, QByteArray::fromHex("1234"), 0), 0x12);
    EXPECT_EQ(CalXOR(nullptr, 0), 0);

    const char digits[] = "0123456789ABCDEF";
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(DigitalToASCII(i), digits[i]);
        EXPECT_EQ(ASCIIToDigital(digits[i]), i);
    }
    EXPECT_EQ(ASCIIToDigital('@'), 0);
    EXPECT_EQ(ASCIIToDigital('?'), 15);
    EXPECT_EQ(ASCIIToDigital('/'), 0);
}

// The table-driven CRC against the definition, one bit at a time.
TEST(Checksum, CrcEqualsBitwiseDefinitionForEveryLength)
{
    std::srand(17);
    unsigned char buf[300];
    for (int length = 0; length <= 300; ++length) {
        for (int round = 0; round < 200; ++round) {
            unsigned int want = 0xFFFF;
            for (int i = 0; i < length; ++i) {
                buf[i] = static_cast<unsigned char>(std::rand());
                want ^= buf[i];
                for (int bit = 0; bit < 8; ++bit)
                    want = (want & 1) ? (want >> 1) ^ 0xA001 : want >> 1;
            }
            ASSERT_EQ(int(want), CalCRC(buf, static_cast<unsigned short>(length))) << length;
        }
    }
}
