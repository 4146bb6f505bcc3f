// End to end through the two programs, as an operator would run them:
// rvsim plays the controller on a pseudo-terminal and rvpoll polls it
// through the driver library. Built and run natively only: the armhf build
// leaves the tools out, so these tests are not part of it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdlib.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "poll_stats.h"
#include "serial_link.h"
#include "varspec.h"

namespace {

struct Result {
    int status = -1;  // exit status, or -1 when it had to be killed
    std::string out, err;
};

pid_t spawn(const std::vector<std::string> &args, int in, int out, int err)
{
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        std::vector<char *> argv;
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

// Runs a program to its end (killed after timeoutMs), feeding `input` to it
// line by line, one line every `lineGapMs`.
Result run(std::vector<std::string> args, const std::vector<std::string> &input = {}, int lineGapMs = 0,
           int timeoutMs = 60000)
{
    int in[2], out[2], err[2];
    EXPECT_EQ(0, pipe(in));
    EXPECT_EQ(0, pipe(out));
    EXPECT_EQ(0, pipe(err));
    const pid_t pid = spawn(args, in[0], out[1], err[1]);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    std::thread feeder([&] {
        for (const std::string &line : input) {
            std::this_thread::sleep_for(std::chrono::milliseconds(lineGapMs));
            const std::string l = line + "\n";
            if (write(in[1], l.data(), l.size()) < 0)
                break;
        }
        close(in[1]);
    });
    Result r;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, 100) <= 0)
            continue;
        for (pollfd &f : fds) {
            if (f.fd < 0 || !(f.revents & (POLLIN | POLLHUP)))
                continue;
            char buf[4096];
            const ssize_t n = read(f.fd, buf, sizeof buf);
            if (n <= 0) {
                close(f.fd);
                f.fd = -1;
                --open;
            } else {
                (f.fd == out[0] ? r.out : r.err).append(buf, n);
            }
        }
    }
    feeder.join();
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

// rvsim running in the background; its output is collected as it comes.
class Sim {
public:
    explicit Sim(std::vector<std::string> extra = {})
    {
        std::vector<std::string> args = {RVSIM_PATH};
        args.insert(args.end(), extra.begin(), extra.end());
        int out[2];
        EXPECT_EQ(0, pipe(out));
        const int devnull = ::open("/dev/null", O_RDWR);
        pid_ = spawn(args, devnull, out[1], out[1]);
        close(devnull);
        close(out[1]);
        reader_ = std::thread([this, fd = out[0]] {
            char buf[1024];
            ssize_t n;
            while ((n = read(fd, buf, sizeof buf)) > 0) {
                std::lock_guard<std::mutex> lock(mutex_);
                text_.append(buf, n);
            }
            close(fd);
        });
        if (waitFor("listening on ")) {
            const std::string t = output();
            const size_t at = t.find("listening on ") + 13;
            path_ = t.substr(at, t.find(' ', at) - at);
        }
    }
    ~Sim() { stop(); }

    const std::string &path() const { return path_; }
    std::string output()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return text_;
    }
    bool waitFor(const std::string &needle, int timeoutMs = 10000)
    {
        for (int waited = 0; waited < timeoutMs; waited += 20) {
            if (output().find(needle) != std::string::npos)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    // SIGTERM; returns the exit status (0 on a clean stop).
    int stop()
    {
        if (pid_ <= 0)
            return status_;
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        reader_.join();
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return status_;
    }

private:
    pid_t pid_ = -1;
    int status_ = -1;
    std::thread reader_;
    std::mutex mutex_;
    std::string text_;
    std::string path_;
};

// The library of this build tree, named explicitly: the sanitizers' dlopen
// interceptors hide rvpoll's RUNPATH from the loader.
std::vector<std::string> poll(const std::string &port, std::vector<std::string> args)
{
    std::vector<std::string> all = {RVPOLL_PATH, "--lib", DRIVER_PATH, "--port", port};
    all.insert(all.end(), args.begin(), args.end());
    return all;
}

// Every number that follows `key` in `text`, in order.
std::vector<long> numbersAfter(const std::string &text, const std::string &key)
{
    std::vector<long> found;
    for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
        const char *start = text.c_str() + at + key.size();
        char *end = nullptr;
        const long v = strtol(start, &end, 10);
        if (end != start)
            found.push_back(v);
    }
    return found;
}

// The value of `key` in the last JSON line of `out`, or -1.
long jsonValue(const std::string &out, const std::string &key)
{
    const size_t line = out.rfind("{\"scan\"");
    if (line == std::string::npos)
        return -1;
    const std::vector<long> v = numbersAfter(out.substr(line), "\"" + key + "\":");
    return v.empty() ? -1 : v.front();
}

}  // namespace

TEST(ToolsTest, ScanReturnsTheSimulatorsLiveValues)
{
    Sim sim({"--tick-ms", "50"});
    ASSERT_FALSE(sim.path().empty()) << sim.output();

    Result r = run(poll(sim.path(), {"--scans", "3", "--interval-ms", "300", "--json", "D0-D1", "M0", "TD5"}));
    ASSERT_EQ(0, r.status) << r.err;
    // One JSON object per scan, the counter rising from scan to scan.
    const std::vector<long> counters = numbersAfter(r.out, "\"D0\":");
    ASSERT_EQ(3u, counters.size()) << r.out;
    EXPECT_GT(counters[2], counters[0]);
    EXPECT_EQ(0, jsonValue(r.out, "D1") % 10);  // the ramp steps by ten
    EXPECT_GE(jsonValue(r.out, "M0"), 0);
    EXPECT_EQ(0, jsonValue(r.out, "TD5"));
    EXPECT_EQ(1, jsonValue(r.out, "last_code"));

    // A plain --once scan: a table and a summary, then exit 0. The driver
    // is found by its soname through rvpoll's RUNPATH, as a runtime finds it.
#if defined(RV_TOOLS_SANITIZED)
    r = run(poll(sim.path(), {"--once", "D0-D9", "X0-X17"}));
#else
    r = run({RVPOLL_PATH, "--port", sim.path(), "--once", "D0-D9", "X0-X17"});
#endif
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("X10 |")) << r.out;  // octal row labels
    EXPECT_NE(std::string::npos, r.err.find("0 errors, 0.0% frame loss")) << r.err;

    EXPECT_EQ(0, sim.stop());
    EXPECT_NE(std::string::npos, sim.output().find("stopped after"));
}

TEST(ToolsTest, WritesLandInTheControllerAndReadBack)
{
    Sim sim;
    ASSERT_FALSE(sim.path().empty()) << sim.output();

    // Y10 is octal: element 8, coil 0x6008 (24584) on the controller.
    Result r = run(poll(sim.path(), {"--once", "--hex", "--write", "D100=0x1234", "--write", "Y10=1",
                                     "--write", "D10=1,2,3", "D100", "Y0-Y17", "D10-D12"}));
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("0x1234")) << r.out;
    EXPECT_TRUE(sim.waitFor("register 100 = 0x1234"));
    EXPECT_TRUE(sim.waitFor("coil 24584 = 1"));
    EXPECT_TRUE(sim.waitFor("register 12 = 0x0003"));

    // A fresh poller, with an empty mirror, reads the values back.
    r = run(poll(sim.path(), {"--once", "--json", "D100", "Y10", "D11"}));
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0x1234, jsonValue(r.out, "D100"));
    EXPECT_EQ(1, jsonValue(r.out, "Y10"));
    EXPECT_EQ(2, jsonValue(r.out, "D11"));

    // Writes typed on standard input go out too; a bad line is reported
    // and polling goes on.
    r = run(poll(sim.path(), {"--duration", "3", "D101"}), {"D101=77", "D101=zz", "X0=1"}, 500);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(sim.waitFor("register 101 = 0x004D (77)"));
    EXPECT_NE(std::string::npos, r.out.find("D101 |     77")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("a word takes")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("refused")) << r.out;
}

TEST(ToolsTest, DroppedRepliesAreRetriedAndPollingRecovers)
{
    Sim sim({"--drop", "0.3", "--seed", "11"});
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    Result r = run(poll(sim.path(), {"--scans", "20", "--interval-ms", "0", "--timeout-ms", "150",
                                     "--retries", "60", "--json", "D0-D3", "M0-M7"}));
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_GT(jsonValue(r.out, "retries"), 0) << r.out;
    EXPECT_EQ(0, jsonValue(r.out, "given_up"));  // every drop recovered by a resend
    EXPECT_EQ(20, jsonValue(r.out, "scan"));
    EXPECT_GT(jsonValue(r.out, "D0"), 0);
    EXPECT_NE(std::string::npos, r.err.find("frames transmitted")) << r.err;
    EXPECT_EQ(std::string::npos, r.err.find(" 0 errors")) << r.err;

    // -v traces both directions; a station that never answers gives up
    // with the no-reply band and exit status 1.
    r = run(poll(sim.path(), {"--station", "9", "--once", "--retries", "0", "--timeout-ms", "30", "-v", "D0"}));
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("[09][03][00][00][00][01]")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("<no reply>")) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("41 no reply")) << r.out;
    EXPECT_NE(std::string::npos, r.err.find("never answered")) << r.err;
}

TEST(ToolsTest, FaultyRepliesGiveUpWithTheirBandMeaning)
{
    struct Case {
        const char *fault;
        const char *shown;
    };
    const Case cases[] = {{"--corrupt", "11 check failed"}, {"--truncate", "71 wrong length"}};
    for (const Case &c : cases) {
        Sim sim({c.fault, "1"});
        ASSERT_FALSE(sim.path().empty()) << sim.output();
        const Result r = run(poll(sim.path(), {"--once", "--retries", "1", "--timeout-ms", "100", "D0-D3"}));
        EXPECT_EQ(1, r.status) << c.fault;
        EXPECT_NE(std::string::npos, r.out.find(c.shown)) << c.fault << ": " << r.out;
        // Every block was resent once before it was given up.
        const std::vector<long> retries = numbersAfter(r.out, "retries "), givenUp = numbersAfter(r.out, "given up ");
        ASSERT_EQ(1u, retries.size()) << r.out;
        EXPECT_GT(retries[0], 0);
        EXPECT_EQ(retries, givenUp);
    }
}

TEST(ToolsTest, SeveralStationsOnOneLine)
{
    Sim sim({"--station", "1,2"});
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    Result r = run(poll(sim.path(), {"--multi-station", "--once", "--json", "--write", "2:D50=9", "1:D50", "2:D50"}));
    ASSERT_EQ(0, r.status) << r.err;
    // Both stations share the simulator's registers; each is read on its own.
    EXPECT_EQ(9, jsonValue(r.out, "1:D50")) << r.out;
    EXPECT_EQ(9, jsonValue(r.out, "2:D50")) << r.out;

    // A silent station is given up without stopping the others; the scan
    // that failed makes the exit status 1.
    r = run(poll(sim.path(), {"--multi-station", "--once", "--json", "--retries", "0", "--timeout-ms", "50",
                              "1:D50", "3:D50"}));
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(9, jsonValue(r.out, "1:D50")) << r.out;
    EXPECT_EQ(0, jsonValue(r.out, "3:D50")) << r.out;
    EXPECT_EQ(1, jsonValue(r.out, "given_up")) << r.out;
}

TEST(ToolsTest, PollingSurvivesTheLineGoingAway)
{
    const std::string line = "/tmp/rvpoll-test-line-" + std::to_string(getpid());
    Sim *sim = new Sim({"--link", line});
    ASSERT_FALSE(sim->path().empty()) << sim->output();
    Result r;
    std::thread poller([&] {
        r = run(poll(line, {"--duration", "5", "--timeout-ms", "50", "--json", "D0"}));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(0, sim->stop());
    delete sim;
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    Sim second({"--link", line});  // back on the same path, a new pseudo-terminal
    poller.join();
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("lost, reopening")) << r.err;
    EXPECT_EQ(0, second.stop());
    // The new controller was polled after the reopen.
    const std::vector<long> served = numbersAfter(second.output(), "stopped after ");
    ASSERT_EQ(1u, served.size()) << second.output();
    EXPECT_GT(served[0], 5);
}

TEST(ToolsTest, VariablesFromAFileAndBroadcastWrites)
{
    Sim sim;
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    const std::string file = "/tmp/rvpoll-test-vars-" + std::to_string(getpid());
    FILE *f = fopen(file.c_str(), "w");
    ASSERT_NE(nullptr, f);
    fputs("# polled on the test line\nD60-D61   # two words\nY0-Y7 HSD3\n", f);
    fclose(f);

    // Station 0 is a broadcast: the write is applied, nothing answers and
    // nothing is waited for; the reads to station 0 get no data either.
    Result r = run(poll(sim.path(), {"--station", "0", "--once", "--write", "D60=5", "--vars", file.c_str()}));
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(sim.waitFor("register 60 = 0x0005"));

    r = run(poll(sim.path(), {"--once", "--json", "--vars", file.c_str()}));
    unlink(file.c_str());
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(5, jsonValue(r.out, "D60")) << r.out;
    EXPECT_EQ(0, jsonValue(r.out, "Y7")) << r.out;
    EXPECT_EQ(0, jsonValue(r.out, "HSD3")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("D62")) << r.out;
}

TEST(ToolsTest, BadInputGivesAClearMessageAndStatusTwo)
{
    struct Case {
        std::vector<std::string> args;
        const char *message;
    };
    const Case cases[] = {
        {{RVPOLL_PATH, "--port", "/dev/null", "D1x"}, "bad address"},
        {{RVPOLL_PATH, "--port", "/dev/null", "Q5"}, "unknown area 'Q'"},
        {{RVPOLL_PATH, "--port", "/dev/null", "X8"}, "octal"},
        {{RVPOLL_PATH, "--port", "/dev/null", "D9-D2"}, "ends before"},
        {{RVPOLL_PATH, "--port", "/dev/null", "--multi-station", "D0"}, "station prefix"},
        {{RVPOLL_PATH, "--port", "/dev/null", "--write", "M5=2", "M5"}, "0 or 1"},
        {{RVPOLL_PATH, "D0-D9"}, "no serial port"},
        {{RVPOLL_PATH, "--lib", DRIVER_PATH, "--port", "/dev/rv-no-such-port", "D0"}, "cannot open /dev/rv-no-such-port"},
        {{RVPOLL_PATH, "--lib", "/nonexistent/libdriver.so", "--port", "/dev/null", "D0"}, "cannot load driver"},
        {{RVPOLL_PATH, "--lib", "libm.so.6", "--port", "/dev/null", "D0"}, "lacks the entry point SetComInfo"},
        {{RVSIM_PATH, "--drop", "0.6", "--corrupt", "0.6"}, "add up to more than 1"},
        {{RVSIM_PATH, "--station", "1,300"}, "bad value"},
    };
    for (const Case &c : cases) {
        const Result r = run(c.args);
        EXPECT_EQ(2, r.status) << c.args.back();
        EXPECT_NE(std::string::npos, r.err.find(c.message)) << c.args.back() << ": " << r.err;
    }
}

TEST(ToolsTest, VariableTextsAndCodeMeanings)
{
    VarSpec v;
    QString error;
    ASSERT_TRUE(parseVarSpec("X0-X17", false, v, error));
    EXPECT_EQ(0, v.areaType);
    EXPECT_EQ(16, v.count);  // octal 0..17
    ASSERT_TRUE(parseVarSpec("2:HSC3-5", true, v, error));
    EXPECT_EQ(2, v.station);
    EXPECT_EQ(12, v.areaType);
    EXPECT_EQ(3, v.address);
    EXPECT_EQ(3, v.count);
    EXPECT_FALSE(parseVarSpec("D0-TD4", false, v, error));
    EXPECT_FALSE(parseVarSpec("D70000", false, v, error));
    EXPECT_EQ("Y17", elementName(1, 15));
    EXPECT_EQ(-1, areaTypeByName("d"));  // the controller's names are upper case

    WriteSpec w;
    ASSERT_TRUE(parseWriteSpec("D100=0x1234,-1", false, w, error));
    EXPECT_EQ(QByteArray("\x34\x12\xFF\xFF", 4), writeBytes(w));
    ASSERT_TRUE(parseWriteSpec("M5=1", false, w, error));
    EXPECT_EQ(QByteArray("\x01", 1), writeBytes(w));
    EXPECT_FALSE(parseWriteSpec("D0-D3=1", false, w, error));

    EXPECT_EQ("check failed", codeMeaning(11));
    EXPECT_EQ("no reply", codeMeaning(52));
    EXPECT_EQ("wrong length", codeMeaning(71));
    EXPECT_EQ("remote no reply", codeMeaning(141));
    EXPECT_EQ("unknown code", codeMeaning(23));
    EXPECT_EQ("retry pending", codeMeaning(0));
}

TEST(ToolsTest, ReplyFramingOnTheLine)
{
    // 3.5 characters of 11 bits, rounded up to whole milliseconds; 1.75 ms
    // (so 2) above 19200 baud.
    EXPECT_EQ(5, frameGapMs(9600));
    EXPECT_EQ(3, frameGapMs(19200));
    EXPECT_EQ(2, frameGapMs(115200));
    EXPECT_EQ(2, frameGapMs(0));
    // An exception reply is complete after 5 bytes, whatever was expected;
    // otherwise the frame's expected length counts.
    EXPECT_EQ(5, replyTarget(QByteArray("\x01\x83\x02", 3), 13));
    EXPECT_EQ(13, replyTarget(QByteArray("\x01\x03\x08", 3), 13));
    EXPECT_EQ(-1, replyTarget(QByteArray(), -1));
}
