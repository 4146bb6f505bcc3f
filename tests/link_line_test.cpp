// The link's line against a far end that misbehaves on cue, over a
// pseudo-terminal: a reply later than the timeout, one resent in place of
// the answer, blocks that hold equal values, the echo of an earlier write
// in place of a lost one; and the port held by one program at a time.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <thread>

#include "link/line.h"
#include "link/rtu_frame.h"
#include "link/serial_port.h"

namespace {

using rvlink::Bytes;
using rvlink::Exchange;

struct Reply {
    int delayMs;
    Bytes bytes;
};
// Given the n-th request (from 0), what the far end sends back and when.
typedef std::function<std::vector<Reply>(const Bytes &request, int n)> Script;

// A controller on the master side of a pseudo-terminal, answering by script.
class FarEnd {
public:
    explicit FarEnd(const Script &script) : script_(script)
    {
        char name[128];
        ok_ = openpty(&master_, &slave_, name, nullptr, nullptr) == 0;
        path_ = name;
        if (ok_)
            thread_ = std::thread(&FarEnd::serve, this);
    }
    ~FarEnd()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
        close(master_);
        close(slave_);
    }
    const std::string &path() const { return path_; }
    bool ok() const { return ok_; }

private:
    void serve()
    {
        Bytes frame;
        int n = 0;
        while (!stop_) {
            std::uint8_t b;
            pollfd p = {master_, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0 || read(master_, &b, 1) != 1)
                continue;
            frame.push_back(b);
            if (frame.size() < rvlink::requestLength(frame.data(), frame.size()))
                continue;
            for (const Reply &r : script_(frame, n)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(r.delayMs));
                if (write(master_, r.bytes.data(), r.bytes.size()) < 0)
                    return;
            }
            ++n;
            frame.clear();
        }
    }

    Script script_;
    int master_ = -1, slave_ = -1;
    bool ok_ = false;
    std::string path_;
    volatile bool stop_ = false;
    std::thread thread_;
};

Bytes closed(Bytes b)
{
    rvlink::appendCrc(b);
    return b;
}

// The reply of a register read holding `values`.
Bytes registers(int station, std::initializer_list<int> values)
{
    Bytes b = {std::uint8_t(station), 0x03, std::uint8_t(2 * values.size())};
    for (int v : values)
        rvlink::appendBigEndian16(b, unsigned(v));
    return closed(b);
}

struct Link {
    rvlink::SerialPort port;
    rvlink::Line line;
    explicit Link(const std::string &path, int timeoutMs = 100)
        : port(settings(path)),
          line(port, options(timeoutMs))
    {}
    static rvlink::PortSettings settings(const std::string &path)
    {
        rvlink::PortSettings s;
        s.path = path;
        s.format.baud = 115200;
        return s;
    }
    static rvlink::LineOptions options(int timeoutMs)
    {
        rvlink::LineOptions o;
        o.format.baud = 115200;
        o.timeoutMs = o.byteTimeoutMs = timeoutMs;
        return o;
    }
};

}  // namespace

TEST(LinkLine, LateRepliesLandInTheWaitNotInTheNextRequest)
{
    // D0 answers 250 ms late, past a 100 ms timeout; D10 at once.
    FarEnd far([](const Bytes &req, int) {
        return std::vector<Reply>{{req[3] == 0 ? 250 : 0, registers(1, {req[3]})}};
    });
    ASSERT_TRUE(far.ok());
    Link l(far.path());
    std::string error;
    ASSERT_TRUE(l.port.open(error)) << error;
    const Exchange first = l.line.exchange(rvlink::readRequest(1, 3, 0, 1), 7);
    EXPECT_EQ(Exchange::NoAnswer, first.outcome);
    EXPECT_EQ(7, first.late);
    // The window (four timeouts) widens to twice the lateness seen.
    EXPECT_GE(l.line.windowMs(), 500);
    EXPECT_LE(l.line.windowMs(), 530);
    const Exchange next = l.line.exchange(rvlink::readRequest(1, 3, 10, 1), 7);
    EXPECT_EQ(Exchange::Answered, next.outcome);
    EXPECT_EQ(registers(1, {10}), next.reply);
}

TEST(LinkLine, CopiesAreConfirmedOrRefusedAndEqualValuesCostNothingOnceRead)
{
    // D0-D1 and D10-D11 hold zeros, D20-D21 holds 7, 8. The first request
    // for D20 gets D0's reply again in place of its answer; every other is
    // answered as asked, confirming reads included.
    int resent = 0;
    FarEnd far([&resent](const Bytes &req, int) {
        if (req[3] == 20 && req[5] == 2 && resent++ == 0)
            return std::vector<Reply>{{0, registers(1, {0, 0})}};
        Bytes values;
        const int quantity = req[5];
        std::vector<int> v(std::size_t(quantity), 0);
        for (int i = 0; i < quantity; ++i)
            if (req[3] + i == 20 || req[3] + i == 21)
                v[std::size_t(i)] = req[3] + i - 13;
        Bytes b = {1, 3, std::uint8_t(2 * quantity)};
        for (int x : v)
            rvlink::appendBigEndian16(b, unsigned(x));
        return std::vector<Reply>{{0, closed(b)}};
    });
    ASSERT_TRUE(far.ok());
    Link l(far.path());
    std::string error;
    ASSERT_TRUE(l.port.open(error)) << error;
    const Bytes d0 = rvlink::readRequest(1, 3, 0, 2), d10 = rvlink::readRequest(1, 3, 10, 2),
                d20 = rvlink::readRequest(1, 3, 20, 2);
    EXPECT_EQ(Exchange::Answered, l.line.exchange(d0, 9).outcome);
    // D10's zeros look like D0's: one confirming read.
    Exchange x = l.line.exchange(d10, 9);
    EXPECT_EQ(Exchange::Answered, x.outcome);
    EXPECT_TRUE(x.confirmed);
    EXPECT_EQ(1, x.checks);
    // Once read, equal values repeat each block's own last answer: on a
    // line that has shown no copy they are taken as they come.
    for (const Bytes &block : {d0, d10}) {
        x = l.line.exchange(block, 9);
        EXPECT_EQ(Exchange::Answered, x.outcome);
        EXPECT_EQ(0, x.checks);
    }
    // D20 gets D0's reply again: the confirming read shows 7, 8.
    x = l.line.exchange(d20, 9);
    EXPECT_EQ(Exchange::Unconfirmed, x.outcome);
    EXPECT_TRUE(l.line.showsStrays());
    x = l.line.exchange(d20, 9);
    EXPECT_EQ(Exchange::Answered, x.outcome);
    EXPECT_EQ(registers(1, {7, 8}), x.reply);
}

TEST(LinkLine, AnEarlierEchoInPlaceOfALostWriteIsNotTakenForItsEcho)
{
    // D500=1,2 is applied and echoed; D500=3,4 is lost and the first echo
    // comes again in its place; the read back shows 1, 2.
    const Bytes first = closed({1, 0x10, 0x01, 0xF4, 0, 2, 4, 0, 1, 0, 2});
    const Bytes second = closed({1, 0x10, 0x01, 0xF4, 0, 2, 4, 0, 3, 0, 4});
    const Bytes echo = closed({1, 0x10, 0x01, 0xF4, 0, 2});
    FarEnd far([&](const Bytes &req, int) {
        if (req[1] == 0x10)
            return std::vector<Reply>{{0, echo}};
        return std::vector<Reply>{{0, registers(1, {1, 2})}};
    });
    ASSERT_TRUE(far.ok());
    Link l(far.path());
    std::string error;
    ASSERT_TRUE(l.port.open(error)) << error;
    EXPECT_EQ(Exchange::Answered, l.line.exchange(first, 8).outcome);
    const Exchange x = l.line.exchange(second, 8);
    EXPECT_EQ(Exchange::Unconfirmed, x.outcome);
    EXPECT_EQ("it repeats a reply taken for another frame; the confirming read disproved it",
              x.doubt);
}

TEST(LinkLine, AWrongEchoSettingIsToldAndTheReplyStillRead)
{
    // A 2-wire adapter hears its own frame first: the request, then D0's reply.
    FarEnd echoing([](const Bytes &req, int) {
        return std::vector<Reply>{{0, req}, {0, registers(1, {5})}};
    });
    FarEnd plain([](const Bytes &, int) { return std::vector<Reply>{{0, registers(1, {5})}}; });
    ASSERT_TRUE(echoing.ok() && plain.ok());
    const struct {
        const FarEnd &far;
        bool discardEcho, heard, missing;
    } cases[] = {{echoing, false, true, false}, {plain, true, false, true}};
    for (const auto &c : cases) {
        rvlink::SerialPort port(Link::settings(c.far.path()));
        rvlink::LineOptions o = Link::options(100);
        o.discardEcho = c.discardEcho;
        rvlink::Line line(port, o);
        std::string error;
        ASSERT_TRUE(port.open(error)) << error;
        const Exchange x = line.exchange(rvlink::readRequest(1, 3, 0, 1), 7);
        EXPECT_EQ(Exchange::Answered, x.outcome) << c.discardEcho;
        EXPECT_EQ(registers(1, {5}), x.reply) << c.discardEcho;
        EXPECT_EQ(c.heard, x.echoHeard) << c.discardEcho;
        EXPECT_EQ(c.missing, x.echoMissing) << c.discardEcho;
    }
}

TEST(LinkPort, HeldByOneProgramAtATime)
{
    FarEnd far([](const Bytes &, int) { return std::vector<Reply>(); });
    ASSERT_TRUE(far.ok());
    const std::string lockFile = rvlink::PortLock::lockFileOf(far.path());
    EXPECT_EQ("/run/lock/LCK.." + far.path().substr(5).replace(3, 1, "_"), lockFile);
    // A lock file left by a process that is gone is taken over.
    const bool lockFolder = access("/run/lock", W_OK) == 0;
    if (lockFolder)
        std::ofstream(lockFile) << "  99999999\n";
    rvlink::SerialPort one(Link::settings(far.path())), two(Link::settings(far.path()));
    std::string error;
    ASSERT_TRUE(one.open(error)) << error;
    EXPECT_FALSE(two.open(error));
    EXPECT_EQ(far.path() + " is in use by process " + std::to_string(getpid()) +
                  " (link_line_test)",
              error);
    one.close();
    EXPECT_TRUE(two.open(error)) << error;
    two.close();
    EXPECT_NE(0, access(lockFile.c_str(), F_OK));  // removed by its holder
    // A speed no serial driver offers is refused, never replaced.
    rvlink::PortSettings odd = Link::settings(far.path());
    odd.format.baud = 12345;
    rvlink::SerialPort three(odd);
    EXPECT_FALSE(three.open(error));
    EXPECT_EQ("cannot configure " + far.path() +
                  ": 12345 is not a baud rate a serial driver offers",
              error);
}

// A real UART through the link (open, line settings, drain, reads with
// timeouts): the machine's first 16550, looped back inside the chip, so each
// frame comes back as sent. A write's echo is the frame itself; a read's
// returns as a frame that answers nothing.
TEST(LinkPort, ARealSerialPortInLoopback)
{
    const std::string port = "/dev/ttyS0";
    const int control = open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    int loop = 0x8000;  // TIOCM_LOOP: the UART's internal loopback
    if (control < 0 || ioctl(control, TIOCMBIS, &loop) != 0) {
        if (control >= 0)
            close(control);
        GTEST_SKIP() << port << " cannot be opened or put in loopback here: no UART to test";
    }
    rvlink::PortSettings s;
    s.path = port;
    s.format.baud = 9600;
    s.exclusive = false;  // the control descriptor above stays open
    rvlink::SerialPort serial(s);
    rvlink::LineOptions o;
    o.format = s.format;
    o.timeoutMs = o.byteTimeoutMs = 100;
    rvlink::Line line(serial, o);
    std::string error;
    ASSERT_TRUE(serial.open(error)) << error;
    const Bytes write = {0x01, 0x06, 0x00, 0x64, 0x00, 0x05, 0x49, 0xD6};
    Exchange x = line.exchange(write, 8);
    EXPECT_EQ(Exchange::Answered, x.outcome);
    EXPECT_EQ(write, x.reply);
    x = line.exchange({0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD}, 25);
    EXPECT_EQ(Exchange::NoAnswer, x.outcome);
    EXPECT_EQ(8, x.skipped);
    EXPECT_EQ(1, x.otherFrame);
    serial.close();
    close(control);
}
