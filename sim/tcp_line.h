// rvsim's --listen and --listen-modbus-tcp: the line reached through TCP,
// beside the pseudo-terminal. The server serves one end of a socket pair,
// as it serves a pseudo-terminal's; this relays the other end to one client
// at a time, and a client that comes while another is served is turned
// away (its connection closed).
#ifndef RVSIM_TCP_LINE_H
#define RVSIM_TCP_LINE_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>

class TcpLine {
public:
    TcpLine() = default;
    ~TcpLine();
    TcpLine(const TcpLine &) = delete;
    TcpLine &operator=(const TcpLine &) = delete;

    // Listens on HOST:PORT (port 0: any free one); false with a reason.
    bool listen(const std::string &hostPort, std::string &error);
    // HOST:PORT as listened on, the port chosen when 0 was given.
    std::string address() const { return address_; }
    // The end the server serves.
    int serverFd() const { return pair_[0]; }
    // Relays on its own thread; `event` hears of clients coming and going.
    bool start(const std::function<void(const std::string &)> &event);
    void stop();

private:
    void relay();
    // Moves what is readable from `from` to `to`; false when `from` closed.
    bool pass(int from, int to);

    int listen_ = -1;
    int pair_[2] = {-1, -1};
    int wake_[2] = {-1, -1};
    int client_ = -1;
    std::string address_;
    std::function<void(const std::string &)> event_;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

#endif
