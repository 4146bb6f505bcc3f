#include "mbap_framing.h"

#include "link/mbap.h"

size_t MbapFraming::frameLength(const std::vector<uint8_t> &f) const
{
    if (f.size() < rvlink::kMbapHeader)
        return rvlink::kMbapHeader;
    const size_t length = rvlink::bigEndian16(f.data() + 4);
    if (rvlink::bigEndian16(f.data() + 2) != 0 || length < 2 || length > rvlink::kMaxPdu + 1)
        return 0;
    return 6 + length;
}

RequestFraming::Translation MbapFraming::translate(const std::vector<uint8_t> &frame) const
{
    Translation t;
    const unsigned transaction = frame.size() >= 2 ? rvlink::bigEndian16(frame.data()) : 0;
    t.text = "Modbus TCP transaction " + std::to_string(transaction) +
             (frame.size() >= rvlink::kMbapHeader ? ", unit " + std::to_string(frame[6]) : "");
    const rvlink::MbapStep step = rvlink::readMbap(frame.data(), frame.size(), transaction, t.rtu);
    if (step.verdict != rvlink::MbapVerdict::Reply || step.bytes != frame.size()) {
        t.rtu.clear();
        t.note = step.verdict == rvlink::MbapVerdict::NeedMore
                     ? "cut short"
                     : "no Modbus TCP frame: protocol not 0 or length out of range";
        return t;
    }
    transaction_ = transaction;
    return t;
}

void MbapFraming::reshapeReply(std::vector<uint8_t> &reply) const
{
    std::vector<uint8_t> framed;
    if (rvlink::mbapFrame(reply.data(), reply.size(), transaction_, framed))
        reply = framed;
}
