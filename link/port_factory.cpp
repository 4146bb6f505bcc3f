#include "port_factory.h"

#include "modbus_tcp_carrier.h"
#include "rfc2217_carrier.h"

namespace rvlink {

std::unique_ptr<Port> makePort(const PortSettings &settings, std::string &error)
{
    if (settings.path.empty()) {
        error = "no serial port given";
        return nullptr;
    }
    LineAddress address;
    if (!parseLineAddress(settings.path, address, error))
        return nullptr;
    if (address.kind != LineAddress::Device && settings.rs485) {
        error = settings.path + ": RS-485 mode is a serial port's, set on the gateway's own";
        return nullptr;
    }
    std::unique_ptr<Carrier> carrier;
    switch (address.kind) {
    case LineAddress::Device: return std::unique_ptr<Port>(new SerialPort(settings));
    case LineAddress::Socket: break;
    case LineAddress::Rfc2217: carrier.reset(new Rfc2217Carrier(settings.format)); break;
    case LineAddress::ModbusTcp: carrier.reset(new ModbusTcpCarrier); break;
    }
    return std::unique_ptr<Port>(new TcpPort(settings.path, address, std::move(carrier)));
}

}  // namespace rvlink
