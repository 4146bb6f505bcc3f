// Modbus TCP requests as a gateway's far end reads them: an MBAP header
// (transaction, protocol 0, length, unit) and a PDU, each standing for the
// RTU request of that unit and PDU. The reply goes back as the PDU under
// the request's transaction: one request is answered at a time.
#ifndef RV_SIM_MBAP_FRAMING_H
#define RV_SIM_MBAP_FRAMING_H

#include "request_framing.h"

class MbapFraming : public RequestFraming {
public:
    // The header's length once it has come; 0 for a header no Modbus TCP
    // frame has (the frame then runs to the next silence, and is not answered).
    size_t frameLength(const std::vector<uint8_t> &f) const override;
    Translation translate(const std::vector<uint8_t> &frame) const override;
    void reshapeReply(std::vector<uint8_t> &reply) const override;

private:
    mutable unsigned transaction_ = 0;  // of the request being answered
};

#endif
