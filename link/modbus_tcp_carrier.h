// A line behind a Modbus TCP gateway: each request the line writes (one
// whole RTU frame) goes out with its own transaction identifier and the
// station as unit identifier; only the reply of that transaction is handed
// back, as the RTU frame it stands for. An earlier request's late reply is
// told by its transaction and dropped, and so is the gateway's own
// exception saying the station did not answer (0x0A, 0x0B): to the line it
// is no answer, as on a serial line. Both are counted.
#ifndef RV_LINK_MODBUS_TCP_CARRIER_H
#define RV_LINK_MODBUS_TCP_CARRIER_H

#include "tcp_port.h"

namespace rvlink {

class ModbusTcpCarrier : public Carrier {
public:
    bool start(TcpConnection &, std::string &) override
    {
        received_.clear();
        return true;
    }
    bool wrap(const std::uint8_t *data, std::size_t n, Bytes &out) override;
    bool unwrap(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer) override;
    void addFigures(NetworkFigures &out) const override;

private:
    unsigned transaction_ = 0;  // the request in flight's
    Bytes received_;            // of a frame not yet whole
    long long stale_ = 0, gatewayNoAnswer_ = 0, unsent_ = 0;
};

}  // namespace rvlink

#endif
