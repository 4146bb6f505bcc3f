#include "serial_port.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "fd_write.h"

namespace rvlink {

namespace {

struct BaudRate {
    int baud;
    speed_t speed;
};

// Every speed a Linux serial driver offers.
const BaudRate kBaudRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000}};

}  // namespace

bool termiosSpeed(int baud, speed_t &out)
{
    for (const BaudRate &r : kBaudRates)
        if (r.baud == baud) {
            out = r.speed;
            return true;
        }
    return false;
}

int baudOfSpeed(speed_t speed)
{
    for (const BaudRate &r : kBaudRates)
        if (r.speed == speed)
            return r.baud;
    return 0;
}

bool rawTermios(const LineFormat &format, termios &tio, std::string &error)
{
    speed_t speed;
    if (!termiosSpeed(format.baud, speed)) {
        error = std::to_string(format.baud) + " is not a baud rate a serial driver offers";
        return false;
    }
    static const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    if (format.dataBits < 5 || format.dataBits > 8) {
        error = std::to_string(format.dataBits) + " data bits: a character has 5 to 8";
        return false;
    }
    tio = termios();
    cfmakeraw(&tio);
    tio.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    tio.c_cflag |= CLOCAL | CREAD | sizes[format.dataBits - 5];
    if (format.parity != 'N')
        tio.c_cflag |= PARENB | (format.parity == 'O' ? PARODD : 0);
    if (format.stopBits == 2)
        tio.c_cflag |= CSTOPB;
    tio.c_iflag &= ~(IXON | IXOFF | IXANY);
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    cfsetispeed(&tio, speed);
    cfsetospeed(&tio, speed);
    return true;
}

bool configureTerminal(int fd, const std::string &path, const LineFormat &format,
                       std::string &error)
{
    termios tio;
    if (!rawTermios(format, tio, error)) {
        error = "cannot configure " + path + ": " + error;
        return false;
    }
    // A pseudo-terminal keeps all but the parity, and the C library may then
    // say EINVAL: what counts is whether the speed and framing took.
    const int failed = tcsetattr(fd, TCSANOW, &tio) != 0 ? errno : 0;
    termios now;
    if (failed && (tcgetattr(fd, &now) != 0 || cfgetospeed(&now) != cfgetospeed(&tio) ||
                   (now.c_cflag & (CSIZE | CSTOPB)) != (tio.c_cflag & (CSIZE | CSTOPB)))) {
        error = "cannot configure " + path + ": " + strerror(failed);
        return false;
    }
    return true;
}

bool readTerminalFormat(int fd, LineFormat &out)
{
    termios now;
    if (tcgetattr(fd, &now) != 0)
        return false;
    const int baud = baudOfSpeed(cfgetospeed(&now));
    if (baud == 0)
        return false;
    out.baud = baud;
    out.stopBits = (now.c_cflag & CSTOPB) ? 2 : 1;
    return true;
}

bool SerialPort::open(std::string &error)
{
    close();
    if (settings_.path.empty()) {
        error = "no serial port given";
        return false;
    }
    const int access = settings_.listenOnly ? O_RDONLY : O_RDWR;
    fd_ = ::open(settings_.path.c_str(), access | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0 || !isatty(fd_)) {
        const int why = errno;
        const bool busy = fd_ < 0 && why == EBUSY;
        error = busy ? PortLock::inUse(settings_.path)
                     : "cannot open " + settings_.path + ": " +
                           (fd_ < 0 ? strerror(why) : "not a serial port");
        close();
        return false;
    }
    if ((settings_.exclusive && !lock_.claim(fd_, settings_.path, error)) ||
        !configureTerminal(fd_, settings_.path, settings_.format, error) ||
        (settings_.rs485 && !setRs485(error))) {
        close();
        return false;
    }
    return true;
}

bool SerialPort::setRs485(std::string &error)
{
    serial_rs485 rs = {};
    rs.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    rs.delay_rts_before_send = unsigned(settings_.rtsDelayBeforeMs);
    rs.delay_rts_after_send = unsigned(settings_.rtsDelayAfterMs);
    if (ioctl(fd_, TIOCSRS485, &rs) != 0) {
        error = settings_.path +
                " does not support the kernel's RS-485 mode (TIOCSRS485: " + strerror(errno) +
                "); use an adapter with automatic direction control";
        return false;
    }
    return true;
}

void SerialPort::close()
{
    if (fd_ < 0)
        return;
    lock_.release(fd_);
    ::close(fd_);
    fd_ = -1;
}

bool SerialPort::write(const std::uint8_t *data, std::size_t n)
{
    if (settings_.listenOnly)
        return false;
    return writeAll(fd_, data, n, 1000);
}

bool SerialPort::drain()
{
    // A pseudo-terminal has nothing to drain and may say so.
    return tcdrain(fd_) == 0 || errno == EINVAL || errno == ENOTTY;
}

int SerialPort::read(std::uint8_t *buf, std::size_t max, int timeoutMs)
{
    pollfd p = {fd_, POLLIN, 0};
    const int r = poll(&p, 1, timeoutMs > 0 ? timeoutMs : 0);
    if (r < 0)
        return errno == EINTR ? 0 : -1;
    if (r == 0)
        return 0;
    const ssize_t n = ::read(fd_, buf, max);
    if (n < 0)
        return (errno == EAGAIN || errno == EINTR) ? 0 : -1;
    // Readable with nothing to read: the other side hung up.
    return n == 0 ? -1 : int(n);
}

int SerialPort::discardInput()
{
    int stray = 0;
    std::uint8_t junk[256];
    ssize_t n;
    while ((n = ::read(fd_, junk, sizeof junk)) > 0)
        stray += int(n);
    tcflush(fd_, TCIFLUSH);
    return stray;
}

}  // namespace rvlink
