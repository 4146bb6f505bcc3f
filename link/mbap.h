// Modbus TCP framing, with no I/O: the RTU request the driver built goes
// out as an MBAP header (transaction identifier, protocol 0, length, unit
// identifier) and its PDU, CRC dropped; a reply's header is checked against
// the request in flight and the reply handed on as the RTU frame it stands
// for: station, PDU and a CRC computed here.
#ifndef RV_LINK_MBAP_H
#define RV_LINK_MBAP_H

#include "bytes.h"

namespace rvlink {

const std::size_t kMbapHeader = 7;  // transaction (2), protocol (2), length (2), unit
// The longest PDU: a function and 252 bytes of data.
const std::size_t kMaxPdu = 253;

// The Modbus TCP frame for the RTU frame `rtu` (station, PDU, CRC), a
// request or a reply; false for bytes that are no such frame (too short,
// too long, or a CRC that does not close), which no gateway could take.
bool mbapFrame(const std::uint8_t *rtu, std::size_t n, unsigned transaction, Bytes &out);

enum class MbapVerdict {
    NeedMore,  // the frame is not whole yet
    Reply,     // the answer to the request in flight: `rtu` holds its RTU frame
    Stale,     // a whole frame of another transaction: an earlier request's late answer
    Broken     // a header no Modbus TCP frame has: the stream cannot be followed
};

struct MbapStep {
    MbapVerdict verdict;
    std::size_t bytes;  // taken off the front of the buffer
};

// What the first `n` bytes received hold, for the request in flight of
// `transaction`. The unit identifier is the reply's station: a wrong one
// is handed on for the line to count as another station's. A server reads
// requests with it too, each frame's own transaction given.
MbapStep readMbap(const std::uint8_t *buf, std::size_t n, unsigned transaction, Bytes &rtu);

// Whether an RTU reply is a gateway's own exception saying the station did
// not answer (0x0A path unavailable, 0x0B target failed to respond).
bool gatewayNoAnswer(const Bytes &rtu);

}  // namespace rvlink

#endif
