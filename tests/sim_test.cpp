// rvsim end to end, as a panel project is tested against it: the program
// runs on its own pseudo-terminal and a libmodbus master asks it directly.
// Built and run natively only, next to the program (sim/rvsim.cmake).
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <modbus/modbus.h>
#include <poll.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/run_command.h"
#include "support/rvsim_process.h"

namespace {

// rvsim with a libmodbus master on its line, at the line's speed.
class RunningSim : public Sim {
public:
    explicit RunningSim(const std::string &args, int baud = 19200) : Sim(args)
    {
        ctx_ = modbus_new_rtu(path().c_str(), baud, 'N', 8, 1);
        if (ctx_ && (modbus_set_slave(ctx_, 1) != 0 || modbus_connect(ctx_) != 0)) {
            modbus_free(ctx_);
            ctx_ = nullptr;
        }
    }
    ~RunningSim()
    {
        if (ctx_) {
            modbus_close(ctx_);
            modbus_free(ctx_);
        }
    }
    modbus_t *master() const { return ctx_; }

private:
    modbus_t *ctx_ = nullptr;
};

enum Ask { ReadRegisters, ReadCoils, WriteRegister, WriteRegisters };

// One request through libmodbus: the values read, or {-errno code} on failure.
std::vector<int> ask(modbus_t *m, Ask what, int address, int count)
{
    uint16_t regs[16] = {};
    uint8_t bits[16] = {};
    int n = -1;
    switch (what) {
    case ReadRegisters: n = modbus_read_registers(m, address, count, regs); break;
    case ReadCoils: n = modbus_read_bits(m, address, count, bits); break;
    case WriteRegister: n = modbus_write_register(m, address, 5) == 1 ? 0 : -1; break;
    case WriteRegisters:
        n = modbus_write_registers(m, address, count, regs) == count ? 0 : -1;
        break;
    }
    if (n < 0)
        return {-(errno - MODBUS_ENOBASE)};
    std::vector<int> got;
    for (int i = 0; i < n; ++i)
        got.push_back(what == ReadCoils ? bits[i] : regs[i]);
    return got;
}

typedef std::chrono::steady_clock Clock;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What reaches `fd` until it stays quiet for `quietMs`: the size of each
// read and when it returned, in ms after `since`.
std::vector<std::pair<int, double>> arrivals(int fd, int quietMs, Clock::time_point since)
{
    std::vector<std::pair<int, double>> got;
    pollfd p = {fd, POLLIN, 0};
    uint8_t buf[512];
    ssize_t n;
    while (poll(&p, 1, quietMs) > 0 && (n = read(fd, buf, sizeof buf)) > 0)
        got.push_back({int(n), msSince(since)});
    return got;
}

}  // namespace

TEST(SimTest, PresetsRefusalsAndTheRequestLog)
{
    const std::string data = scratchFile("# start values\nD100=1234 D10-D12=7\nM5=1\n"
                                         "X10=1   # octal: coil 0x5008\nTD0=0xBEEF\nD20=-1\n");
    const std::string log = scratchFile();
    {
        RunningSim sim("--data=" + data + " --refuse D200-D209,M8 --refuse-function 0x10 --log " +
                       log + " -q");
        ASSERT_TRUE(sim.master()) << sim.output();
        EXPECT_NE(std::string::npos, sim.output().find("8 preset values")) << sim.output();
        const struct {
            Ask what;
            int address, count;
            std::vector<int> expected;  // values, or minus the exception code
            const char *logged;
        } cases[] = {
            {ReadRegisters, 100, 1, {1234}, "function 0x03 address 100 count 1: ok"},
            {ReadRegisters, 10, 3, {7, 7, 7}, "function 0x03 address 10 count 3: ok"},
            {ReadRegisters, 20, 1, {65535}, "address 20 count 1: ok"},
            {ReadRegisters, 0x8000, 1, {0xBEEF}, "address 32768 count 1: ok"},
            {ReadCoils, 5, 1, {1}, "function 0x01 address 5 count 1: ok"},
            {ReadCoils, 0x5008, 1, {1}, "address 20488 count 1: ok"},
            {ReadRegisters,
             195,
             10,
             {-2},
             "function 0x03 address 195 count 10: exception 0x02 (Illegal data address)"},
            {WriteRegister, 209, 1, {-2}, "function 0x06 address 209 count 1: exception 0x02"},
            {ReadCoils, 8, 1, {-2}, "function 0x01 address 8 count 1: exception 0x02"},
            {WriteRegisters,
             0,
             2,
             {-1},
             "function 0x10 address 0 count 2: exception 0x01 (Illegal function)"},
            {WriteRegister, 210, 1, {}, "function 0x06 address 210 count 1: ok"},
        };
        for (const auto &c : cases)
            EXPECT_EQ(c.expected, ask(sim.master(), c.what, c.address, c.count)) << c.logged;
        const std::string logged = readFile(log);
        for (const auto &c : cases)
            EXPECT_NE(std::string::npos, logged.find(c.logged)) << c.logged << "\n" << logged;
        EXPECT_NE(std::string::npos, logged.find(" station 1 ")) << logged;
    }
    unlink(data.c_str());
    unlink(log.c_str());
}

TEST(SimTest, OptionFormsNotesAndErrorTexts)
{
    {
        RunningSim sim("-v --exception-rate=1 --baud 9600 -P e", 9600);
        ASSERT_TRUE(sim.master()) << sim.output();
        EXPECT_EQ(std::vector<int>({-4}), ask(sim.master(), ReadRegisters, 0, 1));
        const std::string out = sim.output();
        for (const char *part : {"note: --parity sets only the character time here",
                                 "function 0x03 address 0 count 1: exception 0x04"})
            EXPECT_NE(std::string::npos, out.find(part)) << part << "\n" << out;
    }
    const std::string badData = scratchFile("D1=1\nQ5=1\n");
    const std::string rvsim = "'" RVSIM_PATH "' ";
    const std::pair<std::string, std::string> cases[] = {
        // Parity forms are accepted: the run gets as far as the port.
        {"--parity=ODD --port /dev/null", "cannot open /dev/null: not a serial port\n<2>"},
        {"--parity x", "bad value 'x' for --parity"},
        {"--bogus", "unknown option --bogus"},
        {"--baud", "--baud needs a value"},
        {"--refuse D7990-D8010", "'D7990-D8010' runs past the end of area D (last element D7999)"},
        {"--data " + badData, badData + ":2: unknown area 'Q' in 'Q5'\n<2>"},
        {"--script ok,bogus", "bad value 'ok,bogus' for --script"},
        {"--lose 0.5 --late-answering 0.3 --resend 0.3", "add up to more than 1"},
        {"--link " + badData, badData + " exists and is not a symbolic link"},
    };
    for (const auto &c : cases) {
        const std::string out = runCommand(rvsim + c.first + " 2>&1; echo \"<$?>\"");
        EXPECT_NE(std::string::npos, out.find(c.second)) << c.first << ": " << out;
    }
    unlink(badData.c_str());
}

// Each scripted fault as a libmodbus master meets it: what the call returns,
// the bytes that come after it, and whether the write was applied.
TEST(SimTest, ScriptedFaultsAsTheMasterSeesThem)
{
    RunningSim sim("-v --twice-ms 40 --delay-ms 300 --script "
                   "ok,lose,twice,drop,late,cut,crc,wrong-station,exception,noise,late-answering,"
                   "resend");
    ASSERT_TRUE(sim.master()) << sim.output();
    modbus_t *m = sim.master();
    modbus_set_response_timeout(m, 0, 150000);
    // A broadcast takes no entry of the script.
    modbus_set_slave(m, 0);
    modbus_write_register(m, 9, 99);
    modbus_set_slave(m, 1);
    const struct {
        const char *logged;
        int error;     // errno of the call, 0 when it succeeded, -1 for any damage
        size_t after;  // bytes arriving after the call returned
    } cases[] = {
        {"count 1: ok\n", 0, 0},
        {"not applied [lose: request lost on the line, no reply]", ETIMEDOUT, 0},
        {"ok [twice: reply sent again 40 ms later]", 0, 8},
        {"ok [drop: no reply sent]", ETIMEDOUT, 0},
        {"ok [late: reply delayed 300 ms]", ETIMEDOUT, 8},
        {"ok [cut: reply cut to ", ETIMEDOUT, 0},
        {"ok [crc: reply sent with a bad CRC]", EMBBADCRC, 0},
        {"ok [wrong-station: reply sent from station 2]", EMBBADSLAVE, 0},
        {"exception 0x04 (Slave device or server failure) [exception: request not applied]",
         EMBXSFAIL, 0},
        {"ok [noise: ", -1, 0},
        {"ok [late-answering: reply sent 300 ms late, later requests answered meanwhile]",
         ETIMEDOUT, 8},
        // The echo of the write before, to another register.
        {"not applied [resend: the last reply sent again (8 bytes)]", 0, 0},
    };
    for (int i = 0; i < 12; ++i) {
        const auto &c = cases[i];
        errno = 0;
        const int error = modbus_write_register(m, 10 + i, 100 + i) == 1 ? 0 : errno;
        const std::vector<std::pair<int, double>> extra =
            arrivals(modbus_get_socket(m), 200, Clock::now());
        size_t after = 0;
        for (const auto &e : extra)
            after += size_t(e.first);
        if (c.error < 0) {
            EXPECT_TRUE(error != 0 || after > 0) << c.logged;
        } else {
            EXPECT_EQ(c.error, error) << c.logged << ": " << modbus_strerror(error);
            EXPECT_EQ(c.after, after) << c.logged;
        }
        EXPECT_EQ("", missing(sim.output(), {c.logged})) << sim.output();
    }
    // Past the script the rates (none) apply: every write but the lost one,
    // the refused one and the one answered by a resent reply was applied.
    uint16_t regs[13] = {};
    ASSERT_EQ(13, modbus_read_registers(m, 9, 13, regs)) << modbus_strerror(errno);
    EXPECT_EQ(std::vector<uint16_t>({99, 100, 0, 102, 103, 104, 105, 106, 107, 0, 109, 110, 0}),
              std::vector<uint16_t>(regs, regs + 13));
}

// A reply's copy (twice) and a reply sent late while answering: the next
// request is answered first, the reply left for later comes after it.
TEST(SimTest, RepliesLeftForLaterComeAfterTheNextAnswer)
{
    RunningSim sim("--twice-ms 300 --delay-ms 300 --script twice,ok,late-answering");
    ASSERT_TRUE(sim.master()) << sim.output();
    modbus_t *m = sim.master();
    modbus_set_response_timeout(m, 0, 150000);
    const int expected[] = {0, ETIMEDOUT};  // of the write, answered twice, then late
    for (int i = 0; i < 2; ++i) {
        const Clock::time_point start = Clock::now();
        errno = 0;
        EXPECT_EQ(expected[i], modbus_write_register(m, 10 + i, 7) == 1 ? 0 : errno) << i;
        // The copy or the late echo would fail this read, were it first.
        EXPECT_EQ(std::vector<int>({7}), ask(m, ReadRegisters, 10 + i, 1)) << i;
        int bytes = 0;
        double first = 0;
        for (const auto &a : arrivals(modbus_get_socket(m), 400, start)) {
            first = bytes ? first : a.second;
            bytes += a.first;
        }
        EXPECT_EQ(8, bytes) << i;
        EXPECT_GE(first, 300.0) << i;
    }
}

// The line's timing: a paced reply takes at least its wire time, and pieces
// come as pieces with their pauses. Lower bounds only.
TEST(SimTest, PacingAndPieces)
{
    {
        RunningSim sim("--baud 9600", 9600);  // 8E1: 11 bits a character
        ASSERT_TRUE(sim.master()) << sim.output();
        uint16_t regs[64];
        const Clock::time_point start = Clock::now();
        ASSERT_EQ(64, modbus_read_registers(sim.master(), 0, 64, regs));
        // 8 request bytes and 133 reply bytes: 141 x 11 / 9600 s.
        EXPECT_GE(msSince(start), 161.5);
    }
    RunningSim sim("--pieces 4,60");
    ASSERT_TRUE(sim.master()) << sim.output();
    const int fd = modbus_get_socket(sim.master());
    const uint8_t readTwo[] = {0x01, 0x03, 0x00, 0x00, 0x00, 0x02, 0xC4, 0x0B};
    const Clock::time_point sent = Clock::now();
    ASSERT_EQ(8, write(fd, readTwo, sizeof readTwo));
    const std::vector<std::pair<int, double>> got = arrivals(fd, 500, sent);
    ASSERT_EQ(3u, got.size());
    EXPECT_EQ(std::vector<int>({4, 4, 1}),
              std::vector<int>({got[0].first, got[1].first, got[2].first}));
    EXPECT_GE(got[1].second, 60.0);
    EXPECT_GE(got[2].second, 120.0);
}

// --link: a path a running rvsim serves is refused, one a dead rvsim left is
// taken over, and SIGTERM ends the run at once, the link and lock removed.
// A --port device another program holds is refused, naming it.
TEST(SimTest, LinkOwnershipAndStop)
{
    const std::string line = "/tmp/rvsim-test-line-" + std::to_string(getpid());
    Sim first("--link " + line);
    ASSERT_FALSE(first.path().empty()) << first.output();
    const std::string refused =
        runCommand("'" RVSIM_PATH "' --link " + line + " 2>&1; echo \"<$?>\"");
    EXPECT_EQ("", missing(refused, {" is in use by a running rvsim (pid ", ")\n<2>"})) << refused;
    {
        Sim holder("--port " + first.path());
        ASSERT_FALSE(holder.path().empty()) << holder.output();
        const std::string held = first.path() + " is in use by process ";
        const std::string busy =
            runCommand("'" RVSIM_PATH "' --port " + first.path() + " 2>&1; echo \"<$?>\"");
        EXPECT_EQ("", missing(busy, {held.c_str(), " (rvsim)\n<2>"})) << busy;
    }
    first.stop();

    // What an rvsim killed outright leaves: the link and an unlocked lock file.
    const std::string stale = line + "-stale";
    ASSERT_EQ(0, symlink("/dev/pts/rvsim-gone", stale.c_str()));
    close(open((stale + ".lock").c_str(), O_CREAT | O_WRONLY, 0644));
    Sim second("--link " + stale);
    ASSERT_FALSE(second.path().empty()) << second.output();
    char target[128] = {};
    EXPECT_LT(0, readlink(stale.c_str(), target, sizeof target - 1));
    EXPECT_EQ(second.path(), target);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(0, second.stop());
    EXPECT_LT(msSince(start), 2000.0);
    struct stat st;
    for (const std::string &gone : {line, line + ".lock", stale, stale + ".lock"})
        EXPECT_NE(0, lstat(gone.c_str(), &st)) << gone;
}
