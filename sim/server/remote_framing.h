// rvsim --remote-link: the far end of a remote link. Its requests are
// request descriptions (link/remote_frame.h), framed by their length byte
// and closed by a one-byte sum; each is answered as the controller answers
// the register frame it stands for, placed by the driver's address map:
// 0x01 with a bit area's bytes, 0x03 with a word area's registers, the
// 0x10 echo for a write.
#ifndef RV_SIM_REMOTE_FRAMING_H
#define RV_SIM_REMOTE_FRAMING_H

#include "request_framing.h"

class RemoteFraming : public RequestFraming {
public:
    // The length byte keeps the low 8 bits of the length: past 233 value
    // bytes it has wrapped, and the lengths it can stand for are tried in
    // turn until the sum closes the frame.
    size_t frameLength(const std::vector<uint8_t> &f) const override;
    // Refused with 0x02: a type that is no area, an element past its area.
    // A write that no single register frame can carry gets 0x03, as that
    // frame would. A bad sum, a frame cut short or one that neither reads
    // nor writes gets no answer.
    Translation translate(const std::vector<uint8_t> &frame) const override;
    // A bit area's write is answered in the 0x10 echo form too.
    void reshapeReply(std::vector<uint8_t> &reply) const override;
};

#endif
