#include "pty_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace {

// Silence after the last byte that ends a reply of unknown length.
const int kGapMs = 30;
// How long a broadcast is given to draw an (unexpected) answer.
const int kBroadcastWaitMs = 50;

}  // namespace

PtyPeer::PtyPeer()
{
    if (openpty(&master_, &line_, nullptr, nullptr, nullptr) != 0)
        master_ = line_ = -1;
    server_.reset(new ModbusServer(master_));
    if (line_ < 0)
        return;
    termios t;
    tcgetattr(line_, &t);
    cfmakeraw(&t);
    tcsetattr(line_, TCSANOW, &t);
    fcntl(line_, F_SETFL, fcntl(line_, F_GETFL) | O_NONBLOCK);
    ok_ = server_->start();
}

PtyPeer::~PtyPeer()
{
    server_.reset();  // stops serving before the line closes
    if (line_ >= 0)
        close(line_);
    if (master_ >= 0)
        close(master_);
}

QByteArray PtyPeer::transact(const QByteArray &frame, int expectedLength, int timeoutMs)
{
    using namespace std::chrono;
    QByteArray reply;
    char buf[512];
    if (line_ < 0)
        return reply;
    tcflush(line_, TCIFLUSH);
    while (read(line_, buf, sizeof buf) > 0) {
    }
    for (int done = 0, w = 0; done < frame.size(); done += w)
        if ((w = int(write(line_, frame.constData() + done, frame.size() - done))) <= 0)
            return reply;

    if (expectedLength == 0)
        timeoutMs = std::min(timeoutMs, kBroadcastWaitMs);
    const auto end = steady_clock::now() + milliseconds(timeoutMs);
    while (expectedLength <= 0 || reply.size() < expectedLength) {
        int wait = int(duration_cast<milliseconds>(end - steady_clock::now()).count());
        if (!reply.isEmpty())
            wait = std::min(wait, kGapMs);
        pollfd p = {line_, POLLIN, 0};
        ssize_t n = 0;
        if (wait <= 0 || poll(&p, 1, wait) <= 0 || (n = read(line_, buf, sizeof buf)) <= 0)
            break;
        reply.append(buf, int(n));
    }
    return reply;
}
