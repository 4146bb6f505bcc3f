#include "serial_link.h"

#include <errno.h>
#include <fcntl.h>
#include <libserialport.h>
#include <limits.h>
#include <linux/serial.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace {

bool isPseudoTerminal(const std::string &path)
{
    char real[PATH_MAX];
    if (!realpath(path.c_str(), real))
        return false;
    return strncmp(real, "/dev/pts/", 9) == 0;
}

std::string spError(const std::string &what)
{
    char *msg = sp_last_error_message();
    std::string text = what + ": " + (msg ? msg : "unknown error");
    sp_free_error_message(msg);
    return text;
}

long long nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

int frameGapMs(int baud)
{
    if (baud <= 0 || baud > 19200)
        return 2;                      // 1.75 ms, rounded up to what poll can wait
    return (38500 + baud - 1) / baud;  // 3.5 characters of 11 bits
}

int replyTarget(const QByteArray &received, int replyLength)
{
    if (received.size() >= 2 && (static_cast<unsigned char>(received.at(1)) & 0x80))
        return 5;  // station, function | 0x80, exception code, CRC
    return replyLength;
}

bool SerialLink::open(const LinkSettings &settings, std::string &error)
{
    close();
    settings_ = settings;
    gapMs_ = settings.gapMs >= 0 ? settings.gapMs : frameGapMs(settings.baud);
    if (settings.port.empty()) {
        error = "no serial port given";
        return false;
    }
    if (access(settings.port.c_str(), F_OK) != 0) {
        error = "cannot open " + settings.port + ": " + strerror(errno);
        return false;
    }
    const int probe = ::open(settings.port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (probe < 0 || !isatty(probe)) {
        error = "cannot open " + settings.port + ": " +
                (probe < 0 ? strerror(errno) : "not a serial port");
        if (probe >= 0)
            ::close(probe);
        return false;
    }
    ::close(probe);
    // libserialport finds ports through sysfs, where pseudo-terminals are
    // not listed; they have no line settings, so open them directly.
    if (isPseudoTerminal(settings.port)) {
        if (settings.rs485) {
            error = settings.port + " is a pseudo-terminal: it has no RS-485 mode";
            return false;
        }
        fd_ = ::open(settings.port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (fd_ < 0) {
            error = "cannot open " + settings.port + ": " + strerror(errno);
            return false;
        }
        termios tio;
        if (tcgetattr(fd_, &tio) == 0) {
            cfmakeraw(&tio);
            tcsetattr(fd_, TCSANOW, &tio);
        }
        // Slower polling of a simulated line costs nothing, and scheduling
        // jitter between chunks is not a frame gap.
        if (settings.gapMs < 0)
            gapMs_ = 20;
        return true;
    }
    if (sp_get_port_by_name(settings.port.c_str(), &port_) != SP_OK) {
        port_ = nullptr;
        error = spError("cannot open " + settings.port);
        return false;
    }
    if (sp_open(port_, SP_MODE_READ_WRITE) != SP_OK) {
        error = spError("cannot open " + settings.port);
        sp_free_port(port_);
        port_ = nullptr;
        return false;
    }
    const sp_parity parity = settings.parity == 'N'   ? SP_PARITY_NONE
                             : settings.parity == 'O' ? SP_PARITY_ODD
                                                      : SP_PARITY_EVEN;
    if (sp_set_baudrate(port_, settings.baud) != SP_OK ||
        sp_set_bits(port_, settings.dataBits) != SP_OK || sp_set_parity(port_, parity) != SP_OK ||
        sp_set_stopbits(port_, settings.stopBits) != SP_OK ||
        sp_set_flowcontrol(port_, SP_FLOWCONTROL_NONE) != SP_OK) {
        error = spError("cannot configure " + settings.port);
        close();
        return false;
    }
    return !settings.rs485 || setRs485(error);
}

bool SerialLink::setRs485(std::string &error)
{
    int fd = -1;
    serial_rs485 rs = {};
    rs.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    rs.delay_rts_before_send = unsigned(settings_.rtsDelayBefore);
    rs.delay_rts_after_send = unsigned(settings_.rtsDelayAfter);
    if (sp_get_port_handle(port_, &fd) != SP_OK || ioctl(fd, TIOCSRS485, &rs) != 0) {
        error = settings_.port +
                " does not support the kernel's RS-485 mode (TIOCSRS485: " + strerror(errno) +
                "); use an adapter with automatic direction control, without --rs485";
        close();
        return false;
    }
    return true;
}

void SerialLink::close()
{
    if (port_) {
        sp_close(port_);
        sp_free_port(port_);
        port_ = nullptr;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool SerialLink::writeAll(const QByteArray &frame)
{
    if (port_) {
        const int n = sp_blocking_write(port_, frame.constData(), frame.size(), 1000);
        return n == frame.size() && sp_drain(port_) == SP_OK;
    }
    int done = 0;
    while (done < frame.size()) {
        const ssize_t n = ::write(fd_, frame.constData() + done, frame.size() - done);
        if (n > 0) {
            done += int(n);
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        pollfd p = {fd_, POLLOUT, 0};
        if (poll(&p, 1, 1000) <= 0)
            return false;
    }
    return tcdrain(fd_) == 0 || errno == EINVAL || errno == ENOTTY;
}

void SerialLink::flushInput()
{
    if (port_) {
        sp_flush(port_, SP_BUF_INPUT);
        return;
    }
    tcflush(fd_, TCIFLUSH);
    char junk[256];
    while (::read(fd_, junk, sizeof junk) > 0) {
    }
}

int SerialLink::readNext(char *buf, int max, int timeoutMs)
{
    if (timeoutMs < 1)
        timeoutMs = 1;  // 0 would mean "wait for ever" to libserialport
    if (port_) {
        const int n = sp_blocking_read_next(port_, buf, max, timeoutMs);
        return n < 0 ? -1 : n;
    }
    pollfd p = {fd_, POLLIN, 0};
    const int r = poll(&p, 1, timeoutMs);
    if (r < 0)
        return errno == EINTR ? 0 : -1;
    if (r == 0)
        return 0;
    const ssize_t n = ::read(fd_, buf, max);
    if (n < 0)
        return (errno == EAGAIN || errno == EINTR) ? 0 : -1;
    return n == 0 ? -1 : int(n);  // hang-up: the other side went away
}

bool SerialLink::readUntil(QByteArray &reply, int replyLength, int firstByteMs)
{
    char buf[512];
    long long deadline = nowMs() + firstByteMs;
    for (;;) {
        const int target = replyTarget(reply, replyLength);
        if (target > 0 && reply.size() >= target)
            return true;
        const long long left = deadline - nowMs();
        if (left <= 0)
            return true;
        int want = int(sizeof buf);
        if (target > 0)
            want = std::min(want, target - reply.size());
        const int n = readNext(buf, want, int(left));
        if (n < 0)
            return false;
        if (n > 0) {
            reply.append(buf, n);
            deadline = nowMs() + gapMs_;  // the frame ends after a silent gap
        }
    }
}

SerialLink::Status SerialLink::transact(const QByteArray &frame, int replyLength, QByteArray &reply)
{
    reply.clear();
    if (!isOpen())
        return Lost;
    flushInput();
    if (!writeAll(frame))
        return Lost;
    if (settings_.discardEcho) {
        QByteArray echo;
        if (!readUntil(echo, frame.size(), settings_.timeoutMs))
            return Lost;
    }
    if (replyLength == 0)
        return Ok;
    return readUntil(reply, replyLength, settings_.timeoutMs) ? Ok : Lost;
}
