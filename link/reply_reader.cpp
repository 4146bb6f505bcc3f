#include "reply_reader.h"

#include "remote_frame.h"
#include "rtu_frame.h"

namespace rvlink {

Expectation expectReply(const std::uint8_t *request, std::size_t n, int replyLength)
{
    Expectation e;
    e.length = replyLength;
    if (!request || n < 6)
        return e;
    const int function = request[1];
    const unsigned quantity = bigEndian16(request + 4);
    switch (function) {
    case ReadCoils:
    case ReadRegisters: e.byteCount = readDataBytes(function, int(quantity)) & 0xFF; break;
    case WriteCoil:
    case WriteRegister:
    case WriteCoils:
    case WriteRegisters:
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

Expectation expectRemoteReply(const std::uint8_t *request, std::size_t n, int replyLength)
{
    Expectation e;
    e.length = replyLength;
    RemoteRequest r;
    if (!parseRemoteRequest(request, n, r))
        return e;
    if (r.rwMode == remote::Write) {
        e.function = WriteRegisters;
        e.echoes = true;
        e.echoFrom = 2;
        e.echo[2] = std::uint8_t(r.count >> 8);
        e.echo[3] = std::uint8_t(r.count);
    } else {
        // A type that is no area is answered in the word shape, as the
        // driver expects it.
        e.function = remoteBitArea(r.areaType) ? ReadCoils : ReadRegisters;
        e.byteCount = replyLength >= 5 ? (replyLength - 5) & 0xFF : -1;
    }
    e.station = r.station;
    return e;
}

namespace {

// How many leading bytes of `buf` could still be the start of the reply:
// all `n` while they fit; fewer at the first byte that contradicts it.
std::size_t fittingPrefix(const Expectation &e, const std::uint8_t *buf, std::size_t n)
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
        for (std::size_t i = 2 + std::size_t(e.echoFrom); i < n && i < 6; ++i)
            if (buf[i] != e.echo[i - 2])
                return i;
        return n;
    }
    return n >= 3 && e.byteCount >= 0 && buf[2] != e.byteCount ? 2 : n;
}

SkipReason reasonAt(const Expectation &e, const std::uint8_t *buf, std::size_t n,
                    std::size_t fitting)
{
    if (fitting == 0)
        return n >= 2 && (buf[1] & 0x7F) == e.function ? SkipReason::OtherStation
                                                       : SkipReason::Noise;
    if (fitting == 1)
        return SkipReason::OtherFunction;
    return e.echoes ? SkipReason::OtherWrite : SkipReason::OtherRead;
}

}  // namespace

Step readReply(const Expectation &e, const std::uint8_t *buf, std::size_t n, bool quiet)
{
    if (n == 0)
        return Step{Verdict::NeedMore, 0, SkipReason::None};
    if (e.length == 0)
        return Step{Verdict::Skip, int(n), SkipReason::NothingExpected};
    if (e.length < 0)
        return quiet ? Step{Verdict::Frame, int(n), SkipReason::None}
                     : Step{Verdict::NeedMore, 0, SkipReason::None};
    const std::size_t fitting = fittingPrefix(e, buf, n);
    if (fitting < n) {
        // Resynchronise on the next byte that could start the reply.
        std::size_t start = 1;
        while (start < n && fittingPrefix(e, buf + start, n - start) < n - start)
            ++start;
        return Step{Verdict::Skip, int(start), reasonAt(e, buf, n, fitting)};
    }
    const int need = n >= 2 && e.function >= 0 && buf[1] == (e.function | 0x80)
                         ? kExceptionReplyLength
                         : e.length;
    return int(n) >= need ? Step{Verdict::Frame, need, SkipReason::None}
                          : Step{Verdict::NeedMore, 0, SkipReason::None};
}

const char *skipReasonText(SkipReason r)
{
    switch (r) {
    case SkipReason::NothingExpected: return "bytes when no reply was expected";
    case SkipReason::Noise: return "noise";
    case SkipReason::OtherStation: return "a reply of another station";
    case SkipReason::OtherFunction: return "a reply to another function";
    case SkipReason::OtherRead: return "a reply to another read";
    case SkipReason::OtherWrite: return "the echo of another write";
    case SkipReason::None: break;
    }
    return "";
}

}  // namespace rvlink
