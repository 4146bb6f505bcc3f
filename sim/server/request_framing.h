// Requests that are not Modbus RTU frames, on a line the server answers: a
// remote link's request descriptions (sim/remote_link.h). Each stands for
// the RTU request a controller answers the same way; the server frames the
// line's bytes with frameLength, answers that RTU request through libmodbus
// with its refusals, faults and line model, and sends the reply reshaped.
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
    // than f.size() while it is incomplete.
    virtual size_t frameLength(const std::vector<uint8_t> &f) const = 0;

    struct Translation {
        std::string text;          // the frame decoded, for the log
        std::vector<uint8_t> rtu;  // the RTU request it stands for; empty: not answered
        int exception = 0;         // answer with this exception instead of applying it
        std::string note;          // why it is not answered, or what else the log should say
    };
    // A whole frame, or what arrived of one before the line fell silent.
    virtual Translation translate(const std::vector<uint8_t> &frame) const = 0;

    // libmodbus's reply to a translated request, as this line carries it.
    virtual void reshapeReply(std::vector<uint8_t> &reply) const = 0;
};

#endif
