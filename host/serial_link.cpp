#include "serial_link.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "baud_rates.h"
#include "examples/reply_reader.h"

namespace {

double msBetween(std::chrono::steady_clock::time_point from,
                 std::chrono::steady_clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

}  // namespace

int bitsPerCharacter(const LinkSettings &s)
{
    return 1 + s.dataBits + (s.parity == 'N' ? 0 : 1) + s.stopBits;
}

int frameGapUs(const LinkSettings &s)
{
    if (s.gapUs >= 0)
        return s.gapUs;
    if (s.baud <= 0 || s.baud > 19200)
        return 1750;
    return int((3.5 * bitsPerCharacter(s) * 1000000.0) / s.baud + 0.999);
}

bool SerialLink::open(const LinkSettings &settings, std::string &error)
{
    close();
    settings_ = settings;
    gapUs_ = frameGapUs(settings);
    if (settings.port.empty()) {
        error = "no serial port given";
        return false;
    }
    fd_ = ::open(settings.port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0 || !isatty(fd_)) {
        error = "cannot open " + settings.port + ": " +
                (fd_ < 0 ? strerror(errno) : "not a serial port");
        close();
        return false;
    }
    if (!configure(error) || (settings.rs485 && !setRs485(error))) {
        close();
        return false;
    }
    quietSince_ = Clock::now();
    lastRequest_.clear();
    lastReply_.clear();
    slowestMs_ = -1;
    return true;
}

// Raw 8-bit (or 7-bit) characters at the chosen speed, parity and stop
// bits, no flow control, no line discipline. A pseudo-terminal takes the
// speed and stop bits (its other end can read them) and drops the parity.
bool SerialLink::configure(std::string &error)
{
    termios tio;
    const BaudRate *rate = baudRateOf(settings_.baud);
    if (!rate) {
        error = "cannot configure " + settings_.port + ": " + std::to_string(settings_.baud) +
                " is not a baud rate the serial driver offers";
        return false;
    }
    if (tcgetattr(fd_, &tio) != 0) {
        error = "cannot configure " + settings_.port + ": " + strerror(errno);
        return false;
    }
    cfmakeraw(&tio);
    tio.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    tio.c_cflag |= CLOCAL | CREAD | (settings_.dataBits == 7 ? CS7 : CS8);
    if (settings_.parity != 'N')
        tio.c_cflag |= PARENB | (settings_.parity == 'O' ? PARODD : 0);
    if (settings_.stopBits == 2)
        tio.c_cflag |= CSTOPB;
    tio.c_iflag &= ~(IXON | IXOFF | IXANY);
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    cfsetispeed(&tio, rate->speed);
    cfsetospeed(&tio, rate->speed);
    // A pseudo-terminal keeps all but the parity, and the C library may then
    // say EINVAL: what counts is whether the speed and framing took.
    const int failed = tcsetattr(fd_, TCSANOW, &tio) != 0 ? errno : 0;
    termios now;
    if (failed && (tcgetattr(fd_, &now) != 0 || cfgetospeed(&now) != rate->speed ||
                   (now.c_cflag & (CSIZE | CSTOPB)) != (tio.c_cflag & (CSIZE | CSTOPB)))) {
        error = "cannot configure " + settings_.port + ": " + strerror(failed);
        return false;
    }
    return true;
}

bool SerialLink::setRs485(std::string &error)
{
    serial_rs485 rs = {};
    rs.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    rs.delay_rts_before_send = unsigned(settings_.rtsDelayBefore);
    rs.delay_rts_after_send = unsigned(settings_.rtsDelayAfter);
    if (ioctl(fd_, TIOCSRS485, &rs) != 0) {
        error = settings_.port +
                " does not support the kernel's RS-485 mode (TIOCSRS485: " + strerror(errno) +
                "); use an adapter with automatic direction control, without --rs485";
        return false;
    }
    return true;
}

void SerialLink::close()
{
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

void SerialLink::traceBytes(const char *bytes, int n, char open, char close,
                            Clock::time_point since)
{
    if (!trace_)
        return;
    QByteArray line;
    for (int i = 0; i < n; ++i)
        line +=
            open + QByteArray::number(uchar(bytes[i]), 16).toUpper().rightJustified(2, '0') + close;
    fprintf(trace_, "%8.1f ms %s\n", msBetween(since, Clock::now()), line.constData());
}

void SerialLink::waitForGap()
{
    const Clock::time_point ready = quietSince_ + std::chrono::microseconds(gapUs_);
    if (Clock::now() < ready)
        std::this_thread::sleep_until(ready);
}

int SerialLink::readSome(char *buf, int max, int timeoutMs)
{
    pollfd p = {fd_, POLLIN, 0};
    const int r = poll(&p, 1, std::max(0, timeoutMs));
    if (r < 0)
        return errno == EINTR ? 0 : -1;
    if (r == 0)
        return 0;
    const ssize_t n = ::read(fd_, buf, size_t(max));
    if (n < 0)
        return (errno == EAGAIN || errno == EINTR) ? 0 : -1;
    // POLLIN with nothing to read: the other side hung up.
    return n == 0 ? -1 : int(n);
}

int SerialLink::takeStray()
{
    int stray = 0;
    char junk[256];
    ssize_t n;
    while ((n = ::read(fd_, junk, sizeof junk)) > 0)
        stray += int(n);
    tcflush(fd_, TCIFLUSH);
    return stray;
}

int SerialLink::settle(int quietMs)
{
    int discarded = 0;
    char junk[256];
    if (!isOpen())
        return 0;
    if (quietMs < 0)
        quietMs = settings_.settleMs < 0 ? settings_.timeoutMs : settings_.settleMs;
    for (;;) {
        const int n = readSome(junk, sizeof junk, quietMs);
        if (n <= 0)
            break;
        discarded += n;
    }
    quietSince_ = Clock::now();
    // Nothing can be in flight now: the next reply is the next frame's.
    lastReply_.clear();
    return discarded;
}

bool SerialLink::send(const QByteArray &frame)
{
    waitForGap();
    int done = 0;
    while (done < frame.size()) {
        const ssize_t n = ::write(fd_, frame.constData() + done, size_t(frame.size() - done));
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
    // The request is timed from when its last byte has left.
    const bool drained = tcdrain(fd_) == 0 || errno == EINVAL || errno == ENOTTY;
    quietSince_ = Clock::now();
    return drained;
}

// Reads until the reply is whole or a timeout passed; false if the device
// failed. The response timeout runs until a byte that can start the reply
// has come, the byte timeout between its pieces after that.
bool SerialLink::readReply(const rvreply::Expectation &expect, Exchange &x)
{
    const int replyLength = expect.length;
    const Clock::time_point sent = quietSince_;
    Clock::time_point lastByte = sent;
    QByteArray buf;
    char piece[512];
    for (;;) {
        const bool quiet = !buf.isEmpty() && replyLength < 0 &&
                           msBetween(lastByte, Clock::now()) >= settings_.byteTimeoutMs;
        const rvreply::Step step = rvreply::readReply(
            expect, reinterpret_cast<const unsigned char *>(buf.constData()), buf.size(), quiet);
        if (step.verdict == rvreply::Skip) {
            x.skipped += step.bytes;
            if (step.bytes >= 2 && expect.station >= 0 && uchar(buf.at(0)) != expect.station &&
                uchar(buf.at(1)) == expect.function)
                ++x.otherStation;
            else if (step.bytes >= 2 && uchar(buf.at(0)) == expect.station)
                ++x.otherFunction;
            buf.remove(0, step.bytes);
            continue;
        }
        if (step.verdict == rvreply::Frame) {
            x.outcome = Exchange::Answered;
            x.reply = buf.left(step.bytes);
            x.strayAfter = buf.size() - step.bytes;
            x.rttMs = msBetween(sent, lastByte);
            return true;
        }
        const Clock::time_point now = Clock::now();
        const Clock::time_point limit =
            buf.isEmpty() ? sent + std::chrono::milliseconds(settings_.timeoutMs)
                          : lastByte + std::chrono::milliseconds(settings_.byteTimeoutMs);
        if (now >= limit) {
            x.outcome = buf.isEmpty() ? Exchange::NoAnswer : Exchange::Cut;
            x.reply = buf;
            x.silenceMs = msBetween(lastByte, now);
            x.rttMs = msBetween(sent, lastByte);
            return true;
        }
        const int wait =
            int(std::chrono::duration_cast<std::chrono::milliseconds>(limit - now).count()) + 1;
        const int n = readSome(piece, sizeof piece, wait);
        if (n < 0)
            return false;
        if (n > 0) {
            lastByte = Clock::now();
            quietSince_ = lastByte;
            traceBytes(piece, n, '<', '>', sent);
            buf.append(piece, n);
        }
    }
}

Exchange SerialLink::exchange(const QByteArray &frame, int replyLength)
{
    Exchange x;
    x.outcome = Exchange::Lost;
    if (!isOpen())
        return x;
    for (int attempt = 0; attempt < 2; ++attempt) {
        waitForGap();
        x.strayBefore += takeStray();
        traceBytes(frame.constData(), frame.size(), '[', ']', Clock::now());
        if (!send(frame))
            return x;
        if (settings_.discardEcho) {
            rvreply::Expectation echo;
            echo.length = frame.size();
            Exchange heard;
            if (!readReply(echo, heard))
                return x;
        }
        if (replyLength == 0) {
            x.outcome = Exchange::Broadcast;
            return x;
        }
        const unsigned char *request = reinterpret_cast<const unsigned char *>(frame.constData());
        if (!readReply(settings_.remoteFrames
                           ? rvreply::expectRemoteReply(request, frame.size(), replyLength)
                           : rvreply::expectReply(request, frame.size(), replyLength),
                       x)) {
            x.outcome = Exchange::Lost;
            return x;
        }
        x.expected = x.reply.size() >= 2 && (uchar(x.reply.at(1)) & 0x80) ? 5 : replyLength;
        if (x.outcome != Exchange::Answered) {
            x.late += settle();
            return x;
        }
        // A repeat of the previous reply answers that frame, not this one:
        // only a second asking, on a settled line, tells them apart. Bytes
        // after the end can likewise mean the frame taken was stale.
        const bool doubtful = (x.reply == lastReply_ && frame != lastRequest_) || x.strayAfter > 0;
        lastRequest_ = frame;
        lastReply_ = x.reply;
        if (!doubtful || attempt > 0) {
            slowestMs_ = std::max(slowestMs_, x.rttMs);
            return x;
        }
        // What may still be on its way is this frame's own reply, behind the
        // repeat: it comes within about one round trip, so twice the slowest
        // seen (a response timeout until one was) is quiet enough. Blocks
        // that hold the same values cost that, not a timeout each.
        x.askedAgain = true;
        x.late += settle(slowestMs_ < 0 ? -1
                                        : std::min(double(settings_.timeoutMs),
                                                   std::max(2 * slowestMs_, 4 * gapUs_ / 1000.0)) +
                                              1);
        x.reply.clear();
        x.strayAfter = 0;
    }
    return x;
}
