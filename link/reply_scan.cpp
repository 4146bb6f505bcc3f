#include "reply_scan.h"

#include "rtu_frame.h"

namespace rvlink {

std::size_t replyLengthAt(const std::uint8_t *f, std::size_t n)
{
    if (n < 2)
        return std::size_t(kExceptionReplyLength);  // the shortest reply, until more says
    if (isException(f[1]))
        return std::size_t(kExceptionReplyLength);
    switch (f[1]) {
    case ReadCoils:
    case ReadRegisters: return n < 3 ? std::size_t(kExceptionReplyLength) : 5 + std::size_t(f[2]);
    case WriteCoil:
    case WriteRegister:
    case WriteCoils:
    case WriteRegisters: return std::size_t(kWriteEchoLength);
    default: return 0;
    }
}

std::vector<Bytes> findReplies(const std::uint8_t *data, std::size_t n)
{
    std::vector<Bytes> found;
    for (std::size_t at = 0; at < n;) {
        const std::size_t length = replyLengthAt(data + at, n - at);
        if (length > 0 && length <= n - at && crcCloses(data + at, length)) {
            found.push_back(Bytes(data + at, data + at + length));
            at += length;
        } else {
            ++at;
        }
    }
    return found;
}

}  // namespace rvlink
