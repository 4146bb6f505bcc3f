// A byte stream to the line, whatever carries it: a serial device here; a
// program that reads replies (link/line.h) needs nothing else of it.
#ifndef RV_LINK_PORT_H
#define RV_LINK_PORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace rvlink {

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
};

}  // namespace rvlink

#endif
