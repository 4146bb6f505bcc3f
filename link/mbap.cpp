#include "mbap.h"

#include "rtu_frame.h"

namespace rvlink {

bool mbapFrame(const std::uint8_t *rtu, std::size_t n, unsigned transaction, Bytes &out)
{
    // Station, function and CRC at the least.
    if (n < 4 || n - 3 > kMaxPdu || !crcCloses(rtu, n))
        return false;
    out.clear();
    appendBigEndian16(out, transaction & 0xFFFF);
    appendBigEndian16(out, 0);
    appendBigEndian16(out, unsigned(n - 2));  // the unit and the PDU
    out.insert(out.end(), rtu, rtu + n - 2);
    return true;
}

MbapStep readMbap(const std::uint8_t *buf, std::size_t n, unsigned transaction, Bytes &rtu)
{
    if (n < kMbapHeader)
        return {MbapVerdict::NeedMore, 0};
    const unsigned length = bigEndian16(buf + 4);
    if (bigEndian16(buf + 2) != 0 || length < 2 || length > kMaxPdu + 1)
        return {MbapVerdict::Broken, n};
    const std::size_t whole = 6 + length;
    if (n < whole)
        return {MbapVerdict::NeedMore, 0};
    if (bigEndian16(buf) != (transaction & 0xFFFF))
        return {MbapVerdict::Stale, whole};
    rtu.assign(buf + 6, buf + whole);
    appendCrc(rtu);
    return {MbapVerdict::Reply, whole};
}

bool gatewayNoAnswer(const Bytes &rtu)
{
    return rtu.size() == std::size_t(kExceptionReplyLength) && isException(rtu[1]) &&
           (rtu[2] == 0x0A || rtu[2] == 0x0B);
}

}  // namespace rvlink
