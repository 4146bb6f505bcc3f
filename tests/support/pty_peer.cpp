#include "pty_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

namespace {

// Silence after the last byte that ends a reply of unknown length.
const int kGapMs = 30;
// How long a broadcast is given to draw an (unexpected) answer.
const int kBroadcastWaitMs = 50;

int msLeft(std::chrono::steady_clock::time_point end)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

PtyPeer::PtyPeer() : master_(-1), line_(-1), ok_(false), server_(nullptr)
{
    if (openpty(&master_, &line_, nullptr, nullptr, nullptr) != 0) {
        master_ = line_ = -1;
        server_ = new ModbusServer(-1);
        return;
    }
    termios t;
    tcgetattr(line_, &t);
    cfmakeraw(&t);
    tcsetattr(line_, TCSANOW, &t);
    fcntl(line_, F_SETFL, fcntl(line_, F_GETFL) | O_NONBLOCK);
    server_ = new ModbusServer(master_);
    ok_ = server_->start();
}

PtyPeer::~PtyPeer()
{
    server_->stop();
    delete server_;
    if (line_ >= 0)
        close(line_);
    if (master_ >= 0)
        close(master_);
}

QByteArray PtyPeer::transact(const QByteArray &frame, int expectedLength, int timeoutMs)
{
    QByteArray reply;
    if (line_ < 0)
        return reply;
    tcflush(line_, TCIFLUSH);
    char buf[512];
    while (read(line_, buf, sizeof buf) > 0) {
    }

    int done = 0;
    while (done < frame.size()) {
        const ssize_t w = write(line_, frame.constData() + done, frame.size() - done);
        if (w <= 0)
            return reply;
        done += static_cast<int>(w);
    }

    if (expectedLength == 0)
        timeoutMs = timeoutMs < kBroadcastWaitMs ? timeoutMs : kBroadcastWaitMs;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (expectedLength <= 0 || reply.size() < expectedLength) {
        int wait = msLeft(end);
        if (!reply.isEmpty() && wait > kGapMs)
            wait = kGapMs;
        pollfd p = {line_, POLLIN, 0};
        if (wait <= 0 || poll(&p, 1, wait) <= 0)
            break;
        const ssize_t n = read(line_, buf, sizeof buf);
        if (n <= 0)
            break;
        reply.append(buf, static_cast<int>(n));
    }
    return reply;
}
