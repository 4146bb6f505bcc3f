// Reading a controller's reply off a serial line by its expected length.
//
// The driver says how long the reply to a frame will be (the Protocol's
// replyLength: 0 = none, -1 = any). A reply ends when that many bytes have
// arrived, or after 5 bytes when its function byte has the top bit set (an
// exception reply); never at a silence once the length is known, because
// USB adapters hand replies over in pieces with pauses of 16 ms and more.
// Bytes that cannot start the expected reply (another station or function,
// a byte count or echo that answers another frame, stale bytes) are skipped,
// so a late answer to an earlier frame is never taken for this one.
//
// No I/O and no clock: the caller appends what the line delivered and asks
// what to do; it also says when the line has gone quiet, which ends a reply
// of unknown length only. Plain C++ with no dependencies, so a runtime can
// take it as it is.
#ifndef QUORVEL_RV_REPLY_READER_H
#define QUORVEL_RV_REPLY_READER_H

namespace rvreply {

// What the reply to one frame must look like.
struct Expectation {
    int length = -1;        // whole reply in bytes; 0 none, -1 any
    int station = -1;       // first byte; -1 any
    int function = -1;      // second byte (or with 0x80 set); -1 any
    int byteCount = -1;     // third byte of a read reply; -1 not checked
    unsigned char echo[4];  // bytes 2..5 a write reply echoes
    bool echoes = false;
};

// The expectation for a Modbus RTU request frame as sent (CRC included)
// whose reply the driver expects to be `replyLength` bytes. Frames of other
// layouts are only held to their length.
inline Expectation expectReply(const unsigned char *request, int requestLength, int replyLength)
{
    Expectation e;
    e.length = replyLength;
    if (!request || requestLength < 6)
        return e;
    const int function = request[1];
    const unsigned quantity = (unsigned(request[4]) << 8) | request[5];
    switch (function) {
    case 0x01:
    case 0x02: e.byteCount = int(((quantity + 7) / 8) & 0xFF); break;
    case 0x03:
    case 0x04: e.byteCount = int((2 * quantity) & 0xFF); break;
    case 0x05:
    case 0x06:
    case 0x0F:
    case 0x10:
        e.echoes = true;
        for (int i = 0; i < 4; ++i)
            e.echo[i] = request[2 + i];
        break;
    default: return e;
    }
    e.station = request[0];
    e.function = function;
    return e;
}

// The expectation for a remote-link frame (a request description: length,
// owner type, read or write, link, station, area type, element, count, ...,
// sum), whose reply is the controller's to the equivalent register frame:
// 0x01 with the bytes of a bit area, 0x03 with the registers of a word
// area, the 0x10 echo of a write.
inline Expectation expectRemoteReply(const unsigned char *request, int requestLength,
                                     int replyLength)
{
    Expectation e;
    e.length = replyLength;
    if (!request || requestLength < 22)
        return e;
    const int areaType = (request[5] << 8) | request[6];
    e.station = request[4];
    if (request[2] == 1) {
        e.function = 0x10;
    } else if (areaType >= 0 && areaType <= 25) {
        e.function = areaType <= 13 ? 0x01 : 0x03;
        e.byteCount = replyLength >= 5 ? (replyLength - 5) & 0xFF : -1;
    } else {
        e.station = -1;  // no register frame answers it
    }
    return e;
}

enum Verdict {
    NeedMore,  // wait for more bytes (or the timeout)
    Frame,     // the first `bytes` bytes are the reply
    Skip       // the first `bytes` bytes cannot start the reply: drop them
};

struct Step {
    Verdict verdict;
    int bytes;
};

// How many leading bytes of `buf` could still be the start of the reply:
// all `n` when they fit so far; fewer when a byte contradicts it.
inline int fittingPrefix(const Expectation &e, const unsigned char *buf, int n)
{
    if (n >= 1 && e.station >= 0 && buf[0] != e.station)
        return 0;
    if (n < 2 || e.function < 0)
        return n;
    if (buf[1] == (e.function | 0x80))
        return n;
    if (buf[1] != e.function)
        return 1;
    if (e.echoes) {
        for (int i = 2; i < n && i < 6; ++i)
            if (buf[i] != e.echo[i - 2])
                return i;
        return n;
    }
    return n >= 3 && e.byteCount >= 0 && buf[2] != e.byteCount ? 2 : n;
}

// What to do with the `n` bytes received so far; `quiet` is true once the
// line has been silent long enough to end a reply of unknown length.
inline Step readReply(const Expectation &e, const unsigned char *buf, int n, bool quiet)
{
    if (n <= 0)
        return Step{NeedMore, 0};
    if (e.length == 0)
        return Step{Skip, n};  // nothing is expected: whatever comes is stray
    if (e.length < 0)
        return quiet ? Step{Frame, n} : Step{NeedMore, 0};
    if (fittingPrefix(e, buf, n) < n) {
        // Resynchronise on the next byte that could start the reply.
        int start = 1;
        while (start < n && fittingPrefix(e, buf + start, n - start) < n - start)
            ++start;
        return Step{Skip, start};
    }
    const int need = n >= 2 && e.function >= 0 && buf[1] == (e.function | 0x80) ? 5 : e.length;
    return n >= need ? Step{Frame, need} : Step{NeedMore, 0};
}

}  // namespace rvreply

#endif
