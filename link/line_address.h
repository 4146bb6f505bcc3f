// What a line's address names: a serial device, or a gateway on the network
// in front of one, by the names Python's serial URLs give them:
//   socket://HOST:PORT       RTU frames as they are over TCP (a serial server in raw mode)
//   rfc2217://HOST:PORT      the same with telnet COM port control: the far port
//                            takes its baud rate, parity and stop bits from here
//   modbus-tcp://HOST[:PORT] a Modbus TCP gateway (port 502 unless given)
// Anything else is a device path.
#ifndef RV_LINK_LINE_ADDRESS_H
#define RV_LINK_LINE_ADDRESS_H

#include <string>

namespace rvlink {

struct LineAddress {
    enum Kind { Device, Socket, Rfc2217, ModbusTcp };
    Kind kind = Device;
    std::string host;  // a name or an address; IPv6 in brackets in the text, bare here
    int port = 0;
};

// Whether `text` starts with one of the network schemes above.
bool isNetworkAddress(const std::string &text);

// Reads `text` (a device path as it is); false with a reason, `out` left a
// device, for a network address that lacks its host or port, or has a port
// outside 1 to 65535 or anything after it.
bool parseLineAddress(const std::string &text, LineAddress &out, std::string &error);

// Whether the line's baud rate, parity and stop bits are set from this side:
// on a device, and on the far port of an RFC 2217 server. Behind a raw
// serial server or a Modbus TCP gateway they are the gateway's own.
inline bool setsLineFormat(const LineAddress &a)
{
    return a.kind == LineAddress::Device || a.kind == LineAddress::Rfc2217;
}

}  // namespace rvlink

#endif
