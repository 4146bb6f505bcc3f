// The port a line address names, opened the one way every program here
// opens it: a device path is a serial port, socket://, rfc2217:// and
// modbus-tcp:// a gateway on the network (line_address.h), so rvpoll, its
// scan and the example runtime take the same addresses.
#ifndef RV_LINK_PORT_FACTORY_H
#define RV_LINK_PORT_FACTORY_H

#include <memory>

#include "line_address.h"
#include "serial_port.h"

namespace rvlink {

// A port for `settings.path`, not yet open; null with a reason in `error`
// for an address no port takes. On a network address `settings.format` is
// what an RFC 2217 server sets its far port to; the lock and RS-485 mode
// are a serial device's.
std::unique_ptr<Port> makePort(const PortSettings &settings, std::string &error);

}  // namespace rvlink

#endif
