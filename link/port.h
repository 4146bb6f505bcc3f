// A byte stream to the line, whatever carries it: a serial device, or a
// gateway on the network in front of one; a program that reads replies
// (link/line.h) needs nothing else of it.
#ifndef RV_LINK_PORT_H
#define RV_LINK_PORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace rvlink {

// What a network between this side and the line adds to each exchange, kept
// apart from the line's own figures.
struct NetworkFigures {
    long long connects = 0;         // connections made
    double connectMs = 0;           // the last one's, the far port's set-up included
    double rttMs = -1;              // the network's round trip, as TCP measured it; -1 unknown
    long long stale = 0;            // replies to an earlier request, told by their transaction
    long long gatewayNoAnswer = 0;  // a gateway's word that the station did not answer
    long long unsent = 0;           // requests no Modbus TCP frame can carry
};

class Port {
public:
    virtual ~Port() {}
    // False with a one-line reason; the port is then closed.
    virtual bool open(std::string &error) = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // Writes all of `data`; false when the port failed.
    virtual bool write(const std::uint8_t *data, std::size_t n) = 0;
    // Returns once what was written has left; false when the port failed.
    virtual bool drain() = 0;
    // Up to `max` bytes, waiting at most `timeoutMs`: 0 when none came, -1
    // when the port failed (an unplugged adapter, a hung-up line).
    virtual int read(std::uint8_t *buf, std::size_t max, int timeoutMs) = 0;
    // Drops what waits unread and returns how many bytes it was.
    virtual int discardInput() = 0;
    // The device or address, for messages.
    virtual std::string name() const = 0;
    // What the network adds; false for a serial device.
    virtual bool network(NetworkFigures &) const { return false; }
};

}  // namespace rvlink

#endif
