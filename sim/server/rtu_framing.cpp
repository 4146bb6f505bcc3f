#include "rtu_framing.h"

#include <algorithm>

#include "link/rtu_frame.h"

size_t RtuFraming::frameLength(const std::vector<uint8_t> &f) const
{
    return std::min(rvlink::requestLength(f.data(), f.size()), rvlink::kMaxRtuFrame);
}

RequestFraming::Translation RtuFraming::translate(const std::vector<uint8_t> &frame) const
{
    Translation t;
    const size_t length = frameLength(frame);
    if (frame.size() < length) {
        t.text = std::to_string(frame.size()) + (frame.size() == 1 ? " byte" : " bytes");
        t.note = "cut short: at least " + std::to_string(length) + " bytes were due";
    } else {
        t.rtu = frame;
    }
    return t;
}
