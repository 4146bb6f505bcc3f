#include "rtu_frame.h"

#include "driver/checksum.h"

namespace rvlink {

unsigned crc16(const std::uint8_t *data, std::size_t n)
{
    // No RTU frame comes near the 16-bit count the driver's CRC takes.
    return unsigned(CalCRC(const_cast<std::uint8_t *>(data), static_cast<unsigned short>(n)));
}

bool crcCloses(const std::uint8_t *frame, std::size_t n)
{
    if (!frame || n < 3 || n > 0xFFFF)
        return false;
    const unsigned crc = crc16(frame, n - 2);
    return frame[n - 2] == (crc & 0xFF) && frame[n - 1] == (crc >> 8);
}

void appendCrc(Bytes &frame)
{
    // The low order byte of the CRC comes first.
    const unsigned crc = crc16(frame.data(), frame.size());
    frame.push_back(std::uint8_t(crc & 0xFF));
    frame.push_back(std::uint8_t(crc >> 8));
}

std::size_t requestLength(const std::uint8_t *f, std::size_t n)
{
    if (n < 2)
        return 4;  // the shortest frame there is, until the function says more
    switch (f[1]) {
    case ReadCoils:
    case ReadRegisters:
    case WriteCoil:
    case WriteRegister: return 8;
    case WriteCoils:
    case WriteRegisters: return n < 7 ? 7 : 9 + std::size_t(f[6]);
    default: return 0;
    }
}

bool parseRequest(const std::uint8_t *f, std::size_t n, RtuRequest &out)
{
    const std::size_t length = f ? requestLength(f, n) : 0;
    if (length == 0 || length != n || !crcCloses(f, n))
        return false;
    out = RtuRequest();
    out.station = f[0];
    out.function = f[1];
    out.address = int(bigEndian16(f + 2));
    if (f[1] == WriteCoil || f[1] == WriteRegister) {
        out.quantity = 1;
        out.data.assign(f + 4, f + 6);
    } else {
        out.quantity = int(bigEndian16(f + 4));
        if (f[1] == WriteCoils || f[1] == WriteRegisters)
            out.data.assign(f + 7, f + n - 2);
    }
    return true;
}

int readDataBytes(int function, int quantity)
{
    return function == ReadCoils ? (quantity + 7) / 8 : 2 * quantity;
}

int replyLengthFor(const RtuRequest &r)
{
    if (r.station == 0)
        return 0;
    return r.reads() ? 5 + readDataBytes(r.function, r.quantity) : kWriteEchoLength;
}

Bytes readRequest(int station, int function, int address, int quantity)
{
    Bytes f;
    f.push_back(std::uint8_t(station));
    f.push_back(std::uint8_t(function));
    appendBigEndian16(f, unsigned(address) & 0xFFFF);
    appendBigEndian16(f, unsigned(quantity) & 0xFFFF);
    appendCrc(f);
    return f;
}

}  // namespace rvlink
