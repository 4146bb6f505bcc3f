#include "remote_framing.h"

#include <stdio.h>

#include <algorithm>

#include <modbus/modbus.h>

#include "common/remote_text.h"
#include "frames/address_map.h"
#include "link/remote_frame.h"
#include "link/rtu_frame.h"
#include "localarea/areas.h"

namespace {

std::string hexByte(unsigned b)
{
    char text[8];
    snprintf(text, sizeof text, "0x%02X", b & 0xFF);
    return text;
}

// A write's data as its register frame carries it: bits packed eight to a
// byte (only the value 1 sets one), registers high byte first from values
// held low byte first; value bytes missing count as 0.
void appendData(std::vector<uint8_t> &frame, const rvlink::RemoteRequest &f, bool bits,
                unsigned units)
{
    const auto value = [&f](unsigned i) { return i < f.values.size() ? f.values[i] : uint8_t(0); };
    const size_t bytes = bits ? (units + 7) / 8 : 2 * units;
    frame.push_back(static_cast<uint8_t>(bytes));
    const size_t at = frame.size();
    frame.resize(at + bytes);
    for (unsigned i = 0; i < units; ++i) {
        if (!bits) {
            frame[at + 2 * i] = value(2 * i + 1);
            frame[at + 2 * i + 1] = value(2 * i);
        } else if (value(i) == 1) {
            frame[at + i / 8] |= static_cast<uint8_t>(1u << (i % 8));
        }
    }
}

}  // namespace

size_t RemoteFraming::frameLength(const std::vector<uint8_t> &f) const
{
    return rvlink::remoteFrameLength(f.data(), f.size());
}

RequestFraming::Translation RemoteFraming::translate(const std::vector<uint8_t> &frame) const
{
    Translation t;
    // The shortest length the length byte can stand for.
    size_t first = frame[0];
    while (first < size_t(rvlink::remote::kReadFrameBytes))
        first += 256;
    if (frame.size() < first) {
        t.text = std::to_string(frame.size()) + (frame.size() == 1 ? " byte" : " bytes");
        t.note = "cut short: its length byte says " + std::to_string(first);
        return t;
    }
    // When a longer frame that the sum would close never came, the bytes
    // are judged by their length byte.
    size_t n = frameLength(frame);
    if (n > frame.size())
        n = first;
    rvlink::RemoteRequest f;
    rvlink::parseRemoteRequest(frame.data(), n, f);
    t.text = describeRemoteRequest(f).toStdString();
    const unsigned sum = rvlink::remoteSum(frame.data(), n - 1);
    if (sum != frame[n - 1]) {
        t.note =
            "bad sum " + hexByte(frame[n - 1]) + ", the bytes before it add up to " + hexByte(sum);
        if (frame.size() > n)
            t.note += ", " + std::to_string(frame.size() - n) + " more bytes after it";
        return t;
    }
    if (f.rwMode != rvlink::remote::Read && f.rwMode != rvlink::remote::Write) {
        t.note = "neither a read nor a write";
        return t;
    }
    if (n != frame[0])
        t.note = "length byte " + hexByte(frame[0]) + " has wrapped: the sum closes the frame at " +
                 std::to_string(n) + " bytes";

    const bool write = f.rwMode == rvlink::remote::Write;
    const bool bits = isBitArea(f.areaType);
    // A bit area's read counts bytes of eight elements; all else counts elements.
    const unsigned long long span = bits && !write ? 8ULL * unsigned(f.count) : unsigned(f.count);
    const unsigned long long capacity = unsigned(areaCapacity(f.areaType));
    const bool inside = f.address < capacity && f.address + span <= capacity;
    int start = int(f.address & 0xFFFF);
    if (inside)
        start = bits ? BitElementToCoil(f.areaType, int(f.address))
                     : WordElementToRegister(f.areaType, int(f.address));
    const unsigned most = !write ? 0xFFFF
                          : bits ? MODBUS_MAX_WRITE_BITS
                                 : MODBUS_MAX_WRITE_REGISTERS;
    const bool fits = span <= most;
    if (!inside)
        t.exception = MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS;
    else if (!fits)
        t.exception = MODBUS_EXCEPTION_ILLEGAL_DATA_VALUE;

    t.rtu.push_back(static_cast<uint8_t>(f.station));
    t.rtu.push_back(write ? (bits ? 0x0F : 0x10) : (bits ? 0x01 : 0x03));
    rvlink::appendBigEndian16(t.rtu, unsigned(start) & 0xFFFF);
    rvlink::appendBigEndian16(t.rtu, unsigned(std::min(span, 0xFFFFULL)));
    if (write)
        appendData(t.rtu, f, bits, inside && fits ? unsigned(span) : 0);
    rvlink::appendCrc(t.rtu);
    return t;
}

void RemoteFraming::reshapeReply(std::vector<uint8_t> &reply) const
{
    if (reply.size() < 4 || (reply[1] & 0x7F) != 0x0F)
        return;
    reply[1] = static_cast<uint8_t>((reply[1] & 0x80) | 0x10);
    reply.resize(reply.size() - 2);
    rvlink::appendCrc(reply);
}
