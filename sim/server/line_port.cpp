#include "line_port.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "link/serial_port.h"

namespace {

// Gap after which a frame that stopped arriving is given up. Generous, so
// that slow emulated runs are not mistaken for broken frames.
const int kByteTimeoutMs = 100;
// How often the reading loop looks at the stop flag when the line is idle.
const int kIdlePollMs = 50;
// The shortest silence taken for the end of a frame: a pseudo-terminal
// hands a frame over at once, a busy machine a little later.
const long long kSilenceMs = 10;
// A frame that runs to the next silence ends here at the latest.
const size_t kLongestFrame = 256;
// Below this a paced reply is not split further: waking more often than
// every millisecond buys no accuracy a poller could notice.
const long long kStepUs = 1000;

// A part of a frame handed to the line `atUs` microseconds after it
// started: bytes [offset, offset + length).
struct Chunk {
    size_t offset;
    size_t length;
    long long atUs;
};

long long wireUs(const LineSettings &line, size_t bytes)
{
    return line.pace ? rvlink::wireTimeUs(line.format, bytes) : 0;
}

// When each part of a frame of `length` bytes reaches the master. Paced, a
// part leaves when its last character has been sent, in parts about 1 ms
// apart (single characters at 9600 baud); pieces leave whole, each gap
// adding to the time of every later piece.
std::vector<Chunk> chunksOf(const LineSettings &line, size_t length)
{
    std::vector<Chunk> chunks;
    const size_t charUs = static_cast<size_t>(std::max(1LL, wireUs(line, 1)));
    size_t step = length;
    if (line.pieceBytes > 0)
        step = static_cast<size_t>(line.pieceBytes);
    else if (line.pace)
        step = std::max<size_t>(1, (kStepUs + charUs - 1) / charUs);
    const long long gapUs = line.pieceBytes > 0 ? line.pieceGapMs * 1000LL : 0;
    for (size_t at = 0, k = 0; at < length; at += step, ++k) {
        const size_t n = std::min(step, length - at);
        chunks.push_back({at, n, wireUs(line, at + n) + gapUs * static_cast<long long>(k)});
    }
    return chunks;
}

long long usUntil(LinePort::Clock::time_point t)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(t - LinePort::Clock::now())
        .count();
}

}  // namespace

std::string speedText(const rvlink::LineFormat &f)
{
    return std::to_string(f.baud) + " baud, " + std::to_string(f.stopBits) +
           (f.stopBits == 1 ? " stop bit" : " stop bits");
}

LinePort::LinePort(int fd) : fd_(fd), running_(false), sent_(0)
{
    wake_[0] = wake_[1] = -1;
}

LinePort::~LinePort()
{
    stop();
    for (int fd : wake_)
        if (fd >= 0)
            close(fd);
}

void LinePort::setLine(const LineSettings &line)
{
    std::lock_guard<std::mutex> hold(mutex_);
    line_ = line;
}

LineSettings LinePort::line() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return line_;
}

bool LinePort::start()
{
    if (running_ || fd_ < 0 || (wake_[0] < 0 && pipe2(wake_, O_NONBLOCK | O_CLOEXEC) != 0))
        return false;
    uint8_t stale[64];
    while (read(wake_[0], stale, sizeof stale) > 0) {
    }
    running_ = true;
    sender_ = std::thread(&LinePort::sendScheduled, this);
    return true;
}

void LinePort::stop()
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        scheduled_.clear();
        if (!running_.exchange(false))
            return;
    }
    due_.notify_all();
    const char b = 1;
    ssize_t ignored = write(wake_[1], &b, 1);
    (void)ignored;
    if (sender_.joinable())
        sender_.join();
}

bool LinePort::readByte(uint8_t &byte, int timeoutMs)
{
    pollfd p[2] = {{fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    if (poll(p, 2, timeoutMs) <= 0 || !running_)
        return false;
    if (p[0].revents & POLLIN)
        return read(fd_, &byte, 1) == 1;
    if (p[0].revents & (POLLHUP | POLLERR))
        pauseUs(kIdlePollMs * 1000LL);  // the other end is closed: do not spin
    return false;
}

bool LinePort::readFrame(const RequestFraming &framing, std::vector<uint8_t> &frame)
{
    frame.clear();
    uint8_t b;
    if (!readByte(b, kIdlePollMs))
        return false;
    frame.push_back(b);
    const int silenceMs =
        int(std::max(kSilenceMs, (rvlink::frameGapUs(line().format) + 999) / 1000));
    for (size_t need = framing.frameLength(frame);
         need == 0 ? frame.size() < kLongestFrame : frame.size() < need;
         need = framing.frameLength(frame)) {
        if (!readByte(b, need == 0 ? silenceMs : kByteTimeoutMs))
            break;
        frame.push_back(b);
    }
    return true;
}

void LinePort::skipToSilence()
{
    uint8_t b;
    while (running_ && readByte(b, int(kSilenceMs))) {
    }
}

long long LinePort::wireTimeUs(size_t bytes) const
{
    return wireUs(line(), bytes);
}

bool LinePort::heardAtOtherSettings(rvlink::LineFormat &heard) const
{
    const LineSettings own = line();
    return own.ownSettingsOnly && rvlink::readTerminalFormat(fd_, heard) &&
           (heard.baud != own.format.baud || heard.stopBits != own.format.stopBits);
}

bool LinePort::send(const std::vector<uint8_t> &bytes, Clock::time_point start, bool reply)
{
    if (bytes.empty() || !pauseUs(usUntil(start)))
        return running_;
    // The line is free while the frame waits: a frame due meanwhile goes first.
    std::lock_guard<std::mutex> busy(busy_);
    const Clock::time_point begin = Clock::now();
    for (const Chunk &c : chunksOf(line(), bytes.size())) {
        if (!pauseUs(usUntil(begin + std::chrono::microseconds(c.atUs))))
            return false;
        writeLine(bytes.data() + c.offset, c.length);
    }
    ++sent_;
    if (reply) {
        std::lock_guard<std::mutex> hold(mutex_);
        lastReply_ = bytes;
    }
    return running_;
}

void LinePort::sendLater(const std::vector<uint8_t> &bytes, Clock::time_point start)
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (!running_ || bytes.empty())
        return;
    scheduled_.emplace(start, bytes);
    due_.notify_one();
}

std::vector<uint8_t> LinePort::lastReply() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return lastReply_;
}

void LinePort::sendScheduled()
{
    std::unique_lock<std::mutex> hold(mutex_);
    while (running_) {
        if (scheduled_.empty()) {
            due_.wait(hold);
            continue;
        }
        const auto first = scheduled_.begin();
        if (Clock::now() < first->first) {
            due_.wait_until(hold, first->first);
            continue;
        }
        const Clock::time_point start = first->first;
        const std::vector<uint8_t> bytes = std::move(first->second);
        scheduled_.erase(first);
        hold.unlock();
        send(bytes, start);
        hold.lock();
    }
}

void LinePort::writeLine(const uint8_t *data, size_t length)
{
    size_t done = 0;
    while (done < length && running_) {
        const ssize_t w = write(fd_, data + done, length - done);
        if (w > 0) {
            done += static_cast<size_t>(w);
        } else if (w < 0 && (errno == EAGAIN || errno == EINTR)) {
            pauseUs(1000);
        } else {
            return;
        }
    }
}

bool LinePort::pauseUs(long long us)
{
    if (us > 0) {
        const timespec wait = {static_cast<time_t>(us / 1000000),
                               static_cast<long>(us % 1000000 * 1000)};
        pollfd p = {wake_[0], POLLIN, 0};
        ppoll(&p, 1, &wait, nullptr);
    }
    return running_;
}
