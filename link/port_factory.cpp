#include "port_factory.h"

namespace rvlink {

std::unique_ptr<Port> makePort(const PortSettings &settings, std::string &error)
{
    if (settings.path.empty()) {
        error = "no serial port given";
        return nullptr;
    }
    return std::unique_ptr<Port>(new SerialPort(settings));
}

}  // namespace rvlink
