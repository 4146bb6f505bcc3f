// A line reached through the network: a TCP connection to a gateway, as
// the Port a line runs on. What the gateway wants around the line's bytes
// (telnet's escaping and COM port control, Modbus TCP's header) is a
// Carrier's; without one the bytes cross as they are (a serial server in
// raw mode). No lock is taken: the gateway decides who may connect.
#ifndef RV_LINK_TCP_PORT_H
#define RV_LINK_TCP_PORT_H

#include <memory>

#include "bytes.h"
#include "line_address.h"
#include "port.h"

namespace rvlink {

// One TCP connection: connected within a time limit, kept alive, frames
// sent at once (no Nagle delay).
class TcpConnection {
public:
    ~TcpConnection() { close(); }
    bool connect(const std::string &host, int port, std::string &error);
    void close();
    bool isOpen() const { return fd_ >= 0; }
    bool send(const Bytes &bytes);
    // Up to `max` bytes within `timeoutMs`: 0 when none came, -1 when the
    // connection failed or the far end closed it.
    int receive(std::uint8_t *buf, std::size_t max, int timeoutMs);
    // The network's round-trip time in ms as the kernel measured it; -1 unknown.
    double rttMs() const;

private:
    int fd_ = -1;
};

// How long connecting, and a gateway's answers while setting up, may take.
const int kNetworkSetUpMs = 3000;

// What goes around the line's bytes on their way through a gateway.
class Carrier {
public:
    virtual ~Carrier() {}
    // Once connected: sets the session up (a far port's settings); false
    // with a reason.
    virtual bool start(TcpConnection &, std::string &) { return true; }
    // The line's `n` bytes as they go out in `out`; false when no frame can
    // carry them (nothing is sent, and no answer comes).
    virtual bool wrap(const std::uint8_t *data, std::size_t n, Bytes &out) = 0;
    // Bytes received: the line's own appended to `line`, what the session
    // must answer to `answer`; false when the stream can no longer be followed.
    virtual bool unwrap(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer) = 0;
    virtual void addFigures(NetworkFigures &) const {}
};

class TcpPort : public Port {
public:
    // `carrier` null: the bytes as they are.
    TcpPort(const std::string &name, const LineAddress &address, std::unique_ptr<Carrier> carrier)
        : name_(name),
          address_(address),
          carrier_(std::move(carrier))
    {}
    ~TcpPort() override { close(); }
    TcpPort(const TcpPort &) = delete;
    TcpPort &operator=(const TcpPort &) = delete;

    bool open(std::string &error) override;
    void close() override { connection_.close(); }
    bool isOpen() const override { return connection_.isOpen(); }
    bool write(const std::uint8_t *data, std::size_t n) override;
    // The bytes are the kernel's once sent; the far side's line is the gateway's.
    bool drain() override { return isOpen(); }
    int read(std::uint8_t *buf, std::size_t max, int timeoutMs) override;
    int discardInput() override;
    std::string name() const override { return name_; }
    bool network(NetworkFigures &out) const override;

private:
    // Takes what the connection delivers within `timeoutMs` into pending_;
    // false when it failed.
    bool take(int timeoutMs, int &received);

    std::string name_;
    LineAddress address_;
    std::unique_ptr<Carrier> carrier_;
    TcpConnection connection_;
    Bytes pending_;  // the line's bytes, received and not yet read
    NetworkFigures figures_;
};

}  // namespace rvlink

#endif
