// Baseline for the benchmarks only: the driver's checksums with CalCRC
// computed bit by bit, the plain reading of CRC-16/MODBUS.
#define CalCRC tableDrivenCalCRC
#include "driver/checksum.cpp"
#undef CalCRC

RV_EXPORT int CalCRC(unsigned char *data, unsigned short count);

int CalCRC(unsigned char *data, unsigned short count)
{
    unsigned int crc = 0xFFFF;
    for (unsigned int i = 0; data && i < count; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
    }
    return static_cast<int>(crc);
}
