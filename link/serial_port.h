// Setting up a serial device the one way every program of the line does:
// termios, raw 8-bit characters, the line's speed, parity and stop bits, no
// flow control. A speed no serial driver offers is refused, never replaced.
// A pseudo-terminal keeps all but the parity; its other end can read the
// speed and stop bits it was given.
#ifndef RV_LINK_SERIAL_PORT_H
#define RV_LINK_SERIAL_PORT_H

#include <termios.h>

#include <string>

#include "line_timing.h"
#include "port.h"
#include "port_lock.h"

namespace rvlink {

struct PortSettings {
    std::string path;
    LineFormat format;
    bool rs485 = false;        // the kernel's RS-485 mode (TIOCSRS485)
    int rtsDelayBeforeMs = 0;  // in RS-485 mode
    int rtsDelayAfterMs = 0;
    bool exclusive = true;    // claim the device for this process alone
    bool listenOnly = false;  // opened for reading alone: nothing is ever written
};

// The termios speed of `baud`; false for a rate no serial driver offers.
bool termiosSpeed(int baud, speed_t &out);
// The baud rate of a termios speed; 0 for none (B0: nobody set one).
int baudOfSpeed(speed_t speed);

// Raw characters in `format` (5 to 8 data bits), receiver on, modem lines
// ignored; false with a reason for a speed or size no terminal takes.
bool rawTermios(const LineFormat &format, termios &out, std::string &error);

// Sets `fd`, open on `path`, to `format`. A pseudo-terminal refuses the
// parity bit: what counts is that the speed, size and stop bits took.
bool configureTerminal(int fd, const std::string &path, const LineFormat &format,
                       std::string &error);

// The speed and stop bits `fd` holds now (all a pseudo-terminal shows of
// what its other end set); false when it holds no speed.
bool readTerminalFormat(int fd, LineFormat &out);

class SerialPort : public Port {
public:
    explicit SerialPort(const PortSettings &settings) : settings_(settings) {}
    ~SerialPort() override { close(); }
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    bool open(std::string &error) override;
    void close() override;
    bool isOpen() const override { return fd_ >= 0; }
    bool write(const std::uint8_t *data, std::size_t n) override;
    bool drain() override;
    int read(std::uint8_t *buf, std::size_t max, int timeoutMs) override;
    int discardInput() override;
    std::string name() const override { return settings_.path; }

    int fd() const { return fd_; }

private:
    bool setRs485(std::string &error);

    PortSettings settings_;
    int fd_ = -1;
    PortLock lock_;
};

}  // namespace rvlink

#endif
