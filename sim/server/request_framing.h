// How the server reads requests off the line: Modbus RTU frames
// (rtu_framing.h) or a remote link's request descriptions
// (remote_framing.h). Each frame stands for the RTU request a controller
// answers the same way; the server answers that request through libmodbus
// with its refusals, faults and line, and sends the reply reshaped.
#ifndef RV_SIM_REQUEST_FRAMING_H
#define RV_SIM_REQUEST_FRAMING_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

class RequestFraming {
public:
    virtual ~RequestFraming() = default;

    // Bytes the frame that starts with `f` (one byte at least) takes: more
    // than f.size() while it is incomplete; 0 when only the silence after
    // it can tell, as a controller frames a function it does not know.
    virtual size_t frameLength(const std::vector<uint8_t> &f) const = 0;

    struct Translation {
        std::string text;          // the frame decoded, for the log; "" for an RTU frame
        std::vector<uint8_t> rtu;  // the RTU request it stands for; empty: not answered
        int exception = 0;         // answer with this exception instead of applying it
        std::string note;          // why it is not answered, or what else the log should say
    };
    // A whole frame, or what arrived of one before the line fell silent.
    virtual Translation translate(const std::vector<uint8_t> &frame) const = 0;

    // libmodbus's reply to a translated request, as this line carries it:
    // as it is, unless the line says otherwise.
    virtual void reshapeReply(std::vector<uint8_t> &) const {}
};

#endif
