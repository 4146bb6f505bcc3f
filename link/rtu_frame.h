// Modbus RTU frames as they cross the line: how long a request is from its
// function and byte count, what it asks for, how long its reply will be,
// and the CRC that closes both. The driver builds its requests itself; these
// are for the other ends of the line: a runtime reading replies, the
// simulated controller reading requests, a listener reading both.
#ifndef RV_LINK_RTU_FRAME_H
#define RV_LINK_RTU_FRAME_H

#include "bytes.h"

namespace rvlink {

// The functions the driver sends and a controller answers.
enum Function {
    ReadCoils = 0x01,
    ReadRegisters = 0x03,
    WriteCoil = 0x05,
    WriteRegister = 0x06,
    WriteCoils = 0x0F,
    WriteRegisters = 0x10
};

// The largest RTU frame: station, function, 252 bytes of data, CRC.
const std::size_t kMaxRtuFrame = 256;
// An exception reply: station, function | 0x80, code, CRC.
const int kExceptionReplyLength = 5;
// A write is echoed as station, function, address, value or quantity, CRC.
const int kWriteEchoLength = 8;

inline bool isException(int function)
{
    return (function & 0x80) != 0;
}

// CRC-16/MODBUS of `n` bytes: the driver's own.
unsigned crc16(const std::uint8_t *data, std::size_t n);
// Whether the last two of `n` bytes are the CRC of the others, low byte first.
bool crcCloses(const std::uint8_t *frame, std::size_t n);
// Appends the CRC of `frame`, low byte first.
void appendCrc(Bytes &frame);

// Bytes the request that starts with the `n` bytes at `f` takes: fixed by
// its function, or by the byte count of a 0x0F or 0x10 once that has come.
// More than `n` while it is incomplete; 0 for a function no master of this
// line sends.
std::size_t requestLength(const std::uint8_t *f, std::size_t n);

// What one whole request asks.
struct RtuRequest {
    int station = 0;
    int function = 0;
    int address = 0;   // first coil or register
    int quantity = 0;  // coils or registers; 1 for 0x05 and 0x06
    Bytes data;        // 0x05/0x06: the value's two bytes; 0x0F/0x10: the data bytes
    bool reads() const { return function == ReadCoils || function == ReadRegisters; }
    bool coils() const
    {
        return function == ReadCoils || function == WriteCoil || function == WriteCoils;
    }
};

// False unless `f` is a whole request of a function above with a good CRC.
bool parseRequest(const std::uint8_t *f, std::size_t n, RtuRequest &out);

// Data bytes of the reply to a read of `quantity` coils or registers.
int readDataBytes(int function, int quantity);
// The whole reply a request calls for: 5 + data bytes for a read, 8 for a
// write, 0 for a broadcast (station 0), which nobody answers.
int replyLengthFor(const RtuRequest &r);

// A read request, CRC included.
Bytes readRequest(int station, int function, int address, int quantity);

}  // namespace rvlink

#endif
