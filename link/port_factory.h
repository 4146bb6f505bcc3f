// The port a line address names, opened the one way every program here
// opens it. A device path is a serial port; the address forms that other
// carriers take are read here too, so rvpoll, its scan and the example
// runtime take the same addresses.
#ifndef RV_LINK_PORT_FACTORY_H
#define RV_LINK_PORT_FACTORY_H

#include <memory>

#include "serial_port.h"

namespace rvlink {

// A port for `settings.path`, not yet open; null with a reason in `error`
// for an address no port takes.
std::unique_ptr<Port> makePort(const PortSettings &settings, std::string &error);

}  // namespace rvlink

#endif
