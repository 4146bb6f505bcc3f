// Reading a controller's reply off the line by the length the driver
// expects, in the three steps libmodbus takes (function, meta, data), with
// no I/O and no clock: the caller appends what the line delivered and asks
// what to do.
//
// The Protocol's replyLength gives the length (0 none, -1 any). A reply ends
// when that many bytes have come, or after 5 when its function has the top
// bit set (an exception reply); never at a silence once the length is
// known, because USB adapters hand replies over in pieces with pauses of
// 16 ms and more. Bytes that cannot start the expected reply (another
// station, function, byte count or echo: a reply to another frame; stale
// bytes; noise) are skipped with the reason, so a late answer to an earlier
// frame is never taken for this one. The CRC is the driver's to judge.
#ifndef RV_LINK_REPLY_READER_H
#define RV_LINK_REPLY_READER_H

#include "bytes.h"

namespace rvlink {

// What the reply to one frame must look like.
struct Expectation {
    int length = -1;            // whole reply in bytes; 0 none, -1 any
    int station = -1;           // first byte; -1 any
    int function = -1;          // second byte (or with 0x80 set); -1 any
    int byteCount = -1;         // third byte of a read reply; -1 not checked
    std::uint8_t echo[4] = {};  // bytes 2..5 a write reply echoes
    bool echoes = false;
    int echoFrom = 0;  // the first of those checked: 2 when only the quantity is known
};

// The reply to a Modbus RTU request as sent (CRC included) that the driver
// expects to be `replyLength` bytes. A frame of another layout is held to
// its length only.
Expectation expectReply(const std::uint8_t *request, std::size_t n, int replyLength);

// The reply to a remote link's request description: the controller's reply
// to the register frame it stands for (0x01 with a bit area's bytes, 0x03
// with registers, the 0x10 echo of a write). The far end places the element
// by its own address map, so of a write's echo only the quantity is known.
Expectation expectRemoteReply(const std::uint8_t *request, std::size_t n, int replyLength);

enum class Verdict {
    NeedMore,  // wait for more bytes (or the timeout)
    Frame,     // the first `bytes` bytes are the reply
    Skip       // the first `bytes` bytes cannot start the reply: drop them
};

enum class SkipReason {
    None,
    NothingExpected,  // no reply was expected at all
    Noise,            // bytes that start no reply to anyone
    OtherStation,     // a reply of another station
    OtherFunction,    // the station's reply to another function
    OtherRead,        // a read reply of another length: the answer to another read
    OtherWrite        // the echo of another write
};

struct Step {
    Verdict verdict;
    int bytes;
    SkipReason reason;
};

// What to do with the `n` bytes received so far; `quiet` is true once the
// line has been silent long enough to end a reply of unknown length.
Step readReply(const Expectation &e, const std::uint8_t *buf, std::size_t n, bool quiet);

// "a reply of another station", for traces and counts.
const char *skipReasonText(SkipReason r);

// Whether a skip is a whole reply's shape to another frame: the mark of a
// late or repeated reply rather than of noise.
inline bool answersAnotherFrame(SkipReason r)
{
    return r == SkipReason::OtherFunction || r == SkipReason::OtherRead ||
           r == SkipReason::OtherWrite;
}

}  // namespace rvlink

#endif
