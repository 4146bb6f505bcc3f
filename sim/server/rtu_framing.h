// Modbus RTU requests, framed as the link frames them: by their function
// and byte count. A frame is its own RTU request; libmodbus judges its CRC.
#ifndef RV_SIM_RTU_FRAMING_H
#define RV_SIM_RTU_FRAMING_H

#include "request_framing.h"

class RtuFraming : public RequestFraming {
public:
    // 0 for a function no master of this line sends: the frame runs to the
    // next silence, and libmodbus answers it as it would.
    size_t frameLength(const std::vector<uint8_t> &f) const override;
    // A frame cut short gets no answer.
    Translation translate(const std::vector<uint8_t> &frame) const override;
};

#endif
