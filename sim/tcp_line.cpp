#include "tcp_line.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link/fd_write.h"

namespace {

// "127.0.0.1:5020", "[::1]:5020".
std::string nameOf(const sockaddr_storage &a)
{
    char host[INET6_ADDRSTRLEN] = "?";
    int port = 0;
    if (a.ss_family == AF_INET6) {
        const sockaddr_in6 &v6 = reinterpret_cast<const sockaddr_in6 &>(a);
        inet_ntop(AF_INET6, &v6.sin6_addr, host, sizeof host);
        port = ntohs(v6.sin6_port);
        return "[" + std::string(host) + "]:" + std::to_string(port);
    }
    const sockaddr_in &v4 = reinterpret_cast<const sockaddr_in &>(a);
    inet_ntop(AF_INET, &v4.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(v4.sin_port));
}

void closeFd(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

}  // namespace

TcpLine::~TcpLine()
{
    stop();
    for (int *fd : {&listen_, &pair_[0], &pair_[1], &wake_[0], &wake_[1], &client_})
        closeFd(*fd);
}

bool TcpLine::listen(const std::string &hostPort, std::string &error)
{
    const size_t colon = hostPort.rfind(':');
    std::string host = colon == std::string::npos ? "" : hostPort.substr(0, colon);
    if (host.size() > 1 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    const std::string port = colon == std::string::npos ? "" : hostPort.substr(colon + 1);
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo *found = nullptr;
    const int looked = host.empty() || port.empty()
                           ? EAI_NONAME
                           : getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (looked != 0) {
        error = "cannot listen on '" + hostPort + "': " +
                (host.empty() || port.empty() ? "give HOST:PORT, e.g. 127.0.0.1:5020"
                                              : gai_strerror(looked));
        return false;
    }
    const int on = 1;
    listen_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool bound =
        listen_ >= 0 && setsockopt(listen_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(listen_, found->ai_addr, found->ai_addrlen) == 0 && ::listen(listen_, 4) == 0;
    const int why = errno;
    freeaddrinfo(found);
    sockaddr_storage at = {};
    socklen_t size = sizeof at;
    if (!bound || getsockname(listen_, reinterpret_cast<sockaddr *>(&at), &size) != 0) {
        error = "cannot listen on " + hostPort + ": " + strerror(why);
        return false;
    }
    address_ = nameOf(at);
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair_) != 0 ||
        pipe2(wake_, O_CLOEXEC) != 0) {
        error = std::string("cannot set up the line: ") + strerror(errno);
        return false;
    }
    return true;
}

bool TcpLine::start(const std::function<void(const std::string &)> &event)
{
    if (listen_ < 0 || running_)
        return false;
    event_ = event;
    running_ = true;
    thread_ = std::thread(&TcpLine::relay, this);
    return true;
}

void TcpLine::stop()
{
    if (!running_.exchange(false))
        return;
    const char b = 1;
    ssize_t ignored = write(wake_[1], &b, 1);
    (void)ignored;
    if (thread_.joinable())
        thread_.join();
}

bool TcpLine::pass(int from, int to)
{
    uint8_t buf[512];
    const ssize_t n = read(from, buf, sizeof buf);
    if (n <= 0)
        return n < 0 && (errno == EAGAIN || errno == EINTR);
    // A client gone is found by its next read.
    return rvlink::writeAll(to, buf, size_t(n), 1000) || to == client_;
}

void TcpLine::relay()
{
    while (running_) {
        pollfd p[4] = {{wake_[0], POLLIN, 0},
                       {listen_, POLLIN, 0},
                       {pair_[1], POLLIN, 0},
                       {client_, POLLIN, 0}};
        if (poll(p, client_ >= 0 ? 4 : 3, -1) < 0 && errno != EINTR)
            break;
        if (p[0].revents)
            break;
        if (p[1].revents & POLLIN) {
            sockaddr_storage from = {};
            socklen_t size = sizeof from;
            const int fd =
                accept4(listen_, reinterpret_cast<sockaddr *>(&from), &size, SOCK_CLOEXEC);
            if (fd >= 0 && client_ >= 0) {
                event_("turned away " + nameOf(from) + ": one client at a time");
                close(fd);
            } else if (fd >= 0) {
                const int on = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
                client_ = fd;
                event_("client " + nameOf(from) + " connected");
            }
        }
        // The line's bytes go to the client; with none, they are lost.
        if (p[2].revents & POLLIN) {
            if (client_ >= 0)
                pass(pair_[1], client_);
            else {
                char junk[512];
                ssize_t ignored = read(pair_[1], junk, sizeof junk);
                (void)ignored;
            }
        }
        if (client_ >= 0 && (p[3].revents & (POLLIN | POLLHUP | POLLERR)) &&
            !pass(client_, pair_[1])) {
            closeFd(client_);
            event_("client disconnected");
        }
    }
}
