#include "tcp_port.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <linux/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "fd_write.h"

namespace rvlink {

namespace {

typedef std::chrono::steady_clock Clock;

double msSince(Clock::time_point t)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

// A non-blocking connect to one address, waited for at most `timeoutMs`;
// the connected socket, or -1 with errno set.
int connectTo(const addrinfo &a, int timeoutMs)
{
    const int fd = socket(a.ai_family, a.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a.ai_protocol);
    if (fd < 0)
        return -1;
    int why = 0;
    if (::connect(fd, a.ai_addr, a.ai_addrlen) != 0) {
        why = errno;
        pollfd p = {fd, POLLOUT, 0};
        socklen_t size = sizeof why;
        if (why == EINPROGRESS)
            why = poll(&p, 1, timeoutMs) <= 0                              ? ETIMEDOUT
                  : getsockopt(fd, SOL_SOCKET, SO_ERROR, &why, &size) != 0 ? errno
                                                                           : why;
    }
    if (why != 0) {
        ::close(fd);
        errno = why;
        return -1;
    }
    return fd;
}

}  // namespace

bool TcpConnection::connect(const std::string &host, int port, std::string &error)
{
    close();
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int looked = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (looked != 0) {
        error = "cannot find " + host + ": " + gai_strerror(looked);
        return false;
    }
    int why = 0;
    for (const addrinfo *a = found; a && fd_ < 0; a = a->ai_next) {
        fd_ = connectTo(*a, kNetworkSetUpMs);
        why = errno;
    }
    freeaddrinfo(found);
    if (fd_ < 0) {
        error =
            "cannot connect to " + host + " port " + std::to_string(port) + ": " + strerror(why);
        return false;
    }
    // Frames leave at once; a gateway that vanished without a word is
    // noticed within about 10 s of silence.
    const int on = 1, idle = 4, interval = 2, count = 3;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd_, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd_, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(fd_, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(fd_, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
    return true;
}

void TcpConnection::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

bool TcpConnection::send(const Bytes &bytes)
{
    return fd_ >= 0 && writeAll(fd_, bytes.data(), bytes.size(), kNetworkSetUpMs);
}

int TcpConnection::receive(std::uint8_t *buf, std::size_t max, int timeoutMs)
{
    if (fd_ < 0)
        return -1;
    pollfd p = {fd_, POLLIN, 0};
    const int r = poll(&p, 1, std::max(timeoutMs, 0));
    if (r <= 0)
        return r < 0 && errno != EINTR ? -1 : 0;
    const ssize_t n = recv(fd_, buf, max, 0);
    if (n < 0)
        return errno == EAGAIN || errno == EINTR ? 0 : -1;
    return n == 0 ? -1 : int(n);  // 0: the far end closed the connection
}

double TcpConnection::rttMs() const
{
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (fd_ < 0 || getsockopt(fd_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return -1;
    // The least round trip the kernel measured is the network's own: later
    // samples wait on the far end's delayed acknowledgements.
    return (info.tcpi_min_rtt ? info.tcpi_min_rtt : info.tcpi_rtt) / 1000.0;
}

bool TcpPort::open(std::string &error)
{
    close();
    pending_.clear();
    const Clock::time_point started = Clock::now();
    if (!connection_.connect(address_.host, address_.port, error) ||
        (carrier_ && !carrier_->start(connection_, error))) {
        error = name_ + ": " + error;
        close();
        return false;
    }
    ++figures_.connects;
    figures_.connectMs = msSince(started);
    figures_.rttMs = connection_.rttMs();
    return true;
}

bool TcpPort::write(const std::uint8_t *data, std::size_t n)
{
    if (!carrier_)
        return connection_.send(bytesOf(data, n));
    Bytes out;
    // A request no frame can carry is not sent: no answer will come.
    return !carrier_->wrap(data, n, out) || connection_.send(out);
}

bool TcpPort::take(int timeoutMs, int &received)
{
    std::uint8_t raw[512];
    received = connection_.receive(raw, sizeof raw, timeoutMs);
    if (received <= 0)
        return received == 0;
    figures_.rttMs = connection_.rttMs();
    if (!carrier_) {
        pending_.insert(pending_.end(), raw, raw + received);
        return true;
    }
    Bytes answer;
    return carrier_->unwrap(raw, std::size_t(received), pending_, answer) &&
           (answer.empty() || connection_.send(answer));
}

int TcpPort::read(std::uint8_t *buf, std::size_t max, int timeoutMs)
{
    const Clock::time_point started = Clock::now();
    // What arrives may be the session's own (a telnet command, an earlier
    // request's answer): wait on until the line's bytes come or time is up.
    while (pending_.empty()) {
        const int left = std::max(0, timeoutMs - int(msSince(started)));
        int received = 0;
        if (!take(left, received))
            return -1;
        if (received == 0 || (left == 0 && pending_.empty()))
            return 0;
    }
    const std::size_t n = std::min(max, pending_.size());
    std::copy(pending_.begin(), pending_.begin() + long(n), buf);
    pending_.erase(pending_.begin(), pending_.begin() + long(n));
    return int(n);
}

int TcpPort::discardInput()
{
    int received = 1;
    while (received > 0 && take(0, received)) {
    }
    const int dropped = int(pending_.size());
    pending_.clear();
    return dropped;
}

bool TcpPort::network(NetworkFigures &out) const
{
    out = figures_;
    if (carrier_)
        carrier_->addFigures(out);
    return true;
}

}  // namespace rvlink
