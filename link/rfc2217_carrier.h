// A line behind an RFC 2217 serial server: the far port is set to the
// line's baud rate, data bits, parity and stop bits when the session
// starts, and each of those must be answered with the value asked, or the
// session fails with what the port took instead. Flow control off and DTR
// and RTS on are asked for too, without waiting: a far port whose control
// lines cannot be set (a pseudo-terminal) does not answer them. Data bytes
// cross with IAC doubled; the server's commands are answered and dropped.
#ifndef RV_LINK_RFC2217_CARRIER_H
#define RV_LINK_RFC2217_CARRIER_H

#include "tcp_port.h"
#include "telnet.h"

namespace rvlink {

class Rfc2217Carrier : public Carrier {
public:
    explicit Rfc2217Carrier(const LineFormat &format) : format_(format) {}
    bool start(TcpConnection &connection, std::string &error) override;
    bool wrap(const std::uint8_t *data, std::size_t n, Bytes &out) override
    {
        out = telnet::escape(data, n);
        return true;
    }
    bool unwrap(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer) override;

private:
    // Reads the server's bytes: data to `line`, negotiations answered in
    // `answer`, subnegotiations to `commands`.
    void read(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer,
              std::vector<telnet::Command> &commands);

    LineFormat format_;
    telnet::Reader reader_;
    telnet::Negotiator negotiator_;
};

}  // namespace rvlink

#endif
