#include "modbus_tcp_carrier.h"

#include "mbap.h"

namespace rvlink {

bool ModbusTcpCarrier::wrap(const std::uint8_t *data, std::size_t n, Bytes &out)
{
    if (mbapFrame(data, n, (transaction_ + 1) & 0xFFFF, out)) {
        transaction_ = (transaction_ + 1) & 0xFFFF;
        return true;
    }
    ++unsent_;
    return false;
}

bool ModbusTcpCarrier::unwrap(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &)
{
    received_.insert(received_.end(), data, data + n);
    for (;;) {
        Bytes rtu;
        const MbapStep step = readMbap(received_.data(), received_.size(), transaction_, rtu);
        if (step.verdict == MbapVerdict::NeedMore)
            return true;
        if (step.verdict == MbapVerdict::Broken)
            return false;
        received_.erase(received_.begin(), received_.begin() + long(step.bytes));
        if (step.verdict == MbapVerdict::Stale)
            ++stale_;
        else if (gatewayNoAnswer(rtu))
            ++gatewayNoAnswer_;
        else
            line.insert(line.end(), rtu.begin(), rtu.end());
    }
}

void ModbusTcpCarrier::addFigures(NetworkFigures &out) const
{
    out.stale = stale_;
    out.gatewayNoAnswer = gatewayNoAnswer_;
    out.unsent = unsent_;
}

}  // namespace rvlink
