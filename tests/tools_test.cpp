// End to end through the two programs, as an operator would run them:
// rvsim plays the controller on a pseudo-terminal and rvpoll polls it
// through the driver library. Built and run natively only: the armhf build
// leaves the tools out, so these tests are not part of it.
#include <gtest/gtest.h>

#include <QtGlobal>
#if QT_VERSION >= 0x050000
#include <QJsonDocument>
#endif

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "poll_stats.h"
#include "support/run_command.h"
#include "support/rvsim_process.h"
#include "support/tool_run.h"
#include "common/varspec.h"

namespace {

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

// Sends `frame` on the line at `path` as it is; the bytes that come back
// within 300 ms, in hex.
std::string sendRaw(const std::string &path, const std::string &frame)
{
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY);
    std::string got;
    if (fd < 0 || write(fd, frame.data(), frame.size()) != ssize_t(frame.size()))
        got = "cannot send";
    pollfd p = {fd, POLLIN, 0};
    unsigned char buf[256];
    for (ssize_t n; poll(&p, 1, 300) > 0 && (n = read(fd, buf, sizeof buf)) > 0;)
        for (ssize_t i = 0; i < n; ++i) {
            char hex[4];
            snprintf(hex, sizeof hex, "%02X", buf[i]);
            got += (got.empty() ? "" : " ") + std::string(hex);
        }
    close(fd);
    return got;
}

// What an independent parser (Python's) finds wrong with the JSON lines of
// `out`: a line that does not parse, or an object that repeats a key; empty
// when every line is sound.
std::string jsonFaults(const std::string &out)
{
    const std::string lines = scratchFile(out);
    const std::string faults = runCommand(
        "python3 -c 'import json,sys\ndef once(pairs):\n  keys = [k for k, v in pairs]\n  "
        "assert len(keys) == len(set(keys)), keys\n  return dict(pairs)\nfor l in sys.stdin: "
        "json.loads(l, object_pairs_hook=once)' 2>&1 <" +
        lines);
    unlink(lines.c_str());
    return faults;
}

}  // namespace

TEST(ToolsTest, ScansReturnTheSimulatorsValues)
{
    Sim sim("--tick-ms 50");
    ASSERT_FALSE(sim.path().empty()) << sim.output();

    Result r = run(poll(sim.path(), "--scans 3 --interval-ms 300 --json D0 M0 TD5"));
    ASSERT_EQ(0, r.status) << r.err;
    // One JSON object per scan, the counter rising from scan to scan.
    const std::vector<long> counters = numbersAfter(r.out, "\"D0\":");
    ASSERT_EQ(3u, counters.size()) << r.out;
    EXPECT_GT(counters[2], counters[0]);
    EXPECT_GE(jsonValue(r.out, "M0"), 0);
    EXPECT_EQ(0, jsonValue(r.out, "TD5"));
    EXPECT_EQ(1, jsonValue(r.out, "last_code"));

    // A plain --once scan: a table and a summary, then exit 0. The driver
    // is found by its soname through rvpoll's RUNPATH, as a runtime finds it.
#if defined(RV_TOOLS_SANITIZED)
    r = run(poll(sim.path(), "--once D0-D9 X0-X17"));
#else
    r = run("'" RVPOLL_PATH "' --port " + sim.path() + " --once D0-D9 X0-X17");
#endif
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", missing(r.out, {"X10 |"})) << r.out;  // octal row labels
    EXPECT_EQ("", missing(r.err, {"0 errors, 0.0% frame loss"})) << r.err;
}

TEST(ToolsTest, ValuesNeverReadAreNeverShownAsNumbers)
{
    const std::string presets = scratchFile();
    std::ofstream(presets) << "D100=1234\n";
    Sim sim("--data " + presets + " --refuse D200-D209");
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    const std::pair<std::string, std::vector<const char *>> cases[] = {
        // A silent station is given up without stopping the others.
        {"--multi-station --json --retries 0 --timeout-ms 50 1:D50 3:D50",
         {"\"1:D50\":0", "\"3:D50\":null", "\"given_up\":1",
          "D50 on station 3: no answer (code 41 no reply): check station"}},
        // A preset reads back; a refused block gives the controller's reason.
        {"D100 D200-D201",
         {"D100 |   1234", "D200 |     --     --",
          "refused by the controller: exception 0x02 (illegal data address)"}},
        // Station 0 is the broadcast address.
        {"--station 0 D0", {"D0 |     --", "broadcast address"}},
    };
    for (const auto &c : cases) {
        const Result r = run(poll(sim.path(), "--once " + c.first));
        EXPECT_EQ(1, r.status) << c.first;
        EXPECT_EQ("", missing(r.out + r.err, c.second)) << c.first << ": " << r.out << r.err;
    }
    // Stopped by a signal half way, a run shows what it read, then exits
    // as a shell reports the signal.
    const Result r =
        run("timeout --preserve-status -s INT 1 " + poll(sim.path(), "--once --block 1 D100-D199"));
    EXPECT_EQ(130, r.status) << r.err;
    EXPECT_EQ("", missing(r.out, {"scan 0\n", "D100 |   1234"})) << r.out;
    unlink(presets.c_str());
}

TEST(ToolsTest, WritesLandInTheControllerAndReadBack)
{
    Sim sim;
    ASSERT_FALSE(sim.path().empty()) << sim.output();

    // Y10 is octal: element 8, coil 0x6008 (24584) on the controller.
    Result r = run(poll(sim.path(), "--once --hex --write D100=0x1234 --write Y10=1 "
                                    "--write D10=1,2,3 D100 Y0-Y17 D10-D12"));
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", missing(r.out, {"0x1234"})) << r.out;
    EXPECT_TRUE(sim.waitFor({"register 100 = 0x1234", "coil 24584 = 1", "register 12 = 0x0003"}))
        << sim.output();

    EXPECT_EQ("", missing(r.out, {"write D100=0x1234: written", "write D10=1,2,3: written"}))
        << r.out;

    // Station 0 is a broadcast: the write is applied though nothing answers
    // (and nothing can be read).
    r = run(poll(sim.path(), "--station 0 --once --write D60=5 D60"));
    EXPECT_EQ(1, r.status) << r.err;
    EXPECT_TRUE(sim.waitFor({"register 60 = 0x0005"})) << sim.output();

    // A fresh poller, with an empty mirror, reads the values back; its
    // variables come from a file, with comments and ranges.
    const std::string file = scratchFile();
    std::ofstream(file)
        << "# polled on the test line\nD100 Y10   # a word and a bit\nD10-D11 D60\n";
    r = run(poll(sim.path(), "--once --json --vars " + file));
    unlink(file.c_str());
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0x1234, jsonValue(r.out, "D100")) << r.out;
    EXPECT_EQ(1, jsonValue(r.out, "Y10")) << r.out;
    EXPECT_EQ(2, jsonValue(r.out, "D11")) << r.out;
    EXPECT_EQ(5, jsonValue(r.out, "D60")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("\"D12\"")) << r.out;

    // Standard input that is no terminal is not a command: nothing is
    // written from it unless asked for.
    r = run(poll(sim.path(), "--duration 1 D101"), "echo D101=76");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(std::string::npos, sim.output().find("register 101")) << sim.output();

    // With --writes-from-stdin lines go out; a bad line is reported and
    // polling goes on.
    r = run(poll(sim.path(), "--duration 2 --writes-from-stdin D101"),
            "sleep 0.3; echo D101=77; sleep 0.3; echo D101=zz; sleep 0.3; echo X0=1");
    EXPECT_EQ(1, r.status) << r.err;  // X0 was refused
    EXPECT_TRUE(sim.waitFor({"register 101 = 0x004D (77)"})) << sim.output();
    EXPECT_EQ("", missing(r.out, {"D101 |     77", "a word takes", "write D101=77: written",
                                  "write X0=1: refused"}))
        << r.out;
}

TEST(ToolsTest, FormatsLandAsTheControllerHoldsThem)
{
    Sim sim;
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    Result r = run(poll(
        sim.path(), "--once --write D100=-2 --write D102=-1.5:float --write D104=-1.5:float:cdab "
                    "--write D106=hello:string D100:int16 D102-D103:float D104-D105:float:cdab "
                    "D106-D108:string"));
    ASSERT_EQ(0, r.status) << r.err;
    // abcd puts the high word first, cdab second; strings go high byte first.
    EXPECT_TRUE(
        sim.waitFor({"register 100 = 0xFFFE", "register 102 = 0xBFC0", "register 105 = 0xBFC0",
                     "register 106 = 0x6865", "register 108 = 0x6F00"}))
        << sim.output();
    // Read back: formats are told apart as values (poller_parts_test) and
    // as CSV columns (README's transcripts); here as JSON keys.
    // An element shown in two formats is two JSON keys, never one key twice.
    r = run(poll(sim.path(),
                 "--once --json --write D110=0x1B41 D110:string D100-D101 D100-D101:int32"));
    EXPECT_EQ("", missing(r.out, {"\"D110:string\":\"\\u001bA\"", "\"D100\":65534",
                                  "\"D100:int32\":-131072"}))
        << r.out;
    EXPECT_EQ("", jsonFaults(r.out));
}

// Scripted faults, each on the first requests of a run: whatever the line
// does, no value is shown that the controller did not hold, every JSON line
// parses, and a write reported written is in the controller.
TEST(ToolsTest, FaultsNeverShowOrReportWhatTheControllerDoesNotHold)
{
    std::string presets;
    for (int i = 10; i < 26; ++i)
        presets += "D" + std::to_string(i) + "=" + std::to_string(1000 + i) + "\n";
    const std::string data = scratchFile(presets);
    const struct {
        const char *sim, *poll;
        int status;
        std::vector<const char *> said, written;
    } cases[] = {
        // A lost request, a reply repeated into the place of the next one
        // (lost), one resent in place of the answer, one later than the
        // timeout while the controller goes on: each is waited out, doubted
        // and confirmed by another read, or given up; never shown.
        {"--script ok,lose,ok,twice,lose",
         "--timeout-ms 100",
         0,
         {" 1 no answer", " 2 doubted, 1 confirmed, 1 not confirmed"},
         {}},
        {"--script ok,resend",
         "--timeout-ms 100",
         0,
         {" 2 doubted, 1 confirmed, 1 not confirmed"},
         {}},
        {"--script ok,late-answering --delay-ms 250",
         "--timeout-ms 100",
         0,
         {" 1 no answer", " late"},
         {}},
        // A USB adapter's pieces, 255 ms apart after a turnaround, at
        // rvpoll's default timeouts.
        {"--baud 115200 --pieces 16,255 --turnaround-ms 20",
         "--baud 115200",
         0,
         {" 0 no answer, 0 cut short"},
         {}},
        // Faults that persist give up with what the line did and the code
        // (nothing comes late here: no window to wait out).
        {"--corrupt 1",
         "--timeout-ms 100 --late-window-ms 100 --retries 1",
         1,
         {"D10-D17 on station 1: bad CRC (code 11 check failed)"},
         {}},
        {"--station 9",
         "--timeout-ms 100 --late-window-ms 100 --retries 1 -v",
         1,
         {"[01][03][00][0A][00][08]", "no answer (code 41 no reply)", "never answered"},
         {}},
        {"--exception-rate 1",
         "--timeout-ms 100 --retries 0",
         1,
         {"D10-D17 on station 1: refused by the controller: exception 0x04 (device failure)"},
         {}},
        // The echo of the first write comes again while the lost second one
        // to the same registers waits: the second's own echo is then
        // confirmed by reading the registers back.
        {"--script twice,lose --twice-ms 250",
         "--timeout-ms 100 --write D500=1,2 --write D500=3,4",
         0,
         {"write D500=3,4: written", "1 doubted"},
         {"register 500 = 0x0003", "register 501 = 0x0004"}},
    };
    for (const auto &c : cases) {
        Sim sim(std::string("--tick-ms 10 --data ") + data + " " + c.sim);
        ASSERT_FALSE(sim.path().empty()) << sim.output();
        const Result r =
            run(poll(sim.path(), std::string("--scans 3 --interval-ms 0 --json --block 8 ") +
                                     c.poll + " D10-D25"));
        EXPECT_EQ(c.status, r.status) << c.sim << r.err;
        EXPECT_EQ("", missing(r.out + r.err, c.said)) << c.sim << ": " << r.out << r.err;
        EXPECT_TRUE(sim.waitFor(c.written)) << sim.output();
        for (int i = 10; i < 26; ++i) {
            for (long v : numbersAfter(r.out, "\"D" + std::to_string(i) + "\":"))
                EXPECT_EQ(1000 + i, v) << c.sim << ": D" << i;
        }
        // Every line is JSON to an independent parser, and to Qt's where it has one.
        EXPECT_EQ("", jsonFaults(r.out));
#if QT_VERSION >= 0x050000
        for (const QByteArray &line : QByteArray::fromStdString(r.out).split('\n'))
            EXPECT_TRUE(line.isEmpty() || QJsonDocument::fromJson(line).isObject()) << line.data();
#endif
    }
    unlink(data.c_str());
}

TEST(ToolsTest, PollingSurvivesTheLineGoingAway)
{
    const std::string line = "/tmp/rvpoll-test-line-" + std::to_string(getpid());
    Result r;
    std::thread poller;
    {
        Sim first("--link " + line);
        ASSERT_FALSE(first.path().empty()) << first.output();
        poller =
            std::thread([&] { r = run(poll(line, "--duration 5 --timeout-ms 50 --json D0")); });
        usleep(1500 * 1000);
        // The port is the first poller's: a second is refused at once.
        const Result second = run(poll(line, "--once D0"));
        EXPECT_EQ(2, second.status);
        EXPECT_EQ("", missing(second.err, {" is in use by process ", " (rvpoll)"})) << second.err;
        EXPECT_EQ(0, first.stop());
    }
    usleep(700 * 1000);
    Sim second("--link " + line);  // back on the same path, a new pseudo-terminal
    poller.join();
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", missing(r.err, {"lost, reopening"})) << r.err;
    EXPECT_EQ(0, second.stop());
    // The new controller was polled after the reopen.
    const std::vector<long> served = numbersAfter(second.output(), "stopped after ");
    ASSERT_EQ(1u, served.size()) << second.output();
    EXPECT_GT(served[0], 5);

    // A line that does not come back is reported, and the exit status says so.
    {
        Sim third("--link " + line);
        poller = std::thread([&] { r = run(poll(line, "--duration 2 --timeout-ms 50 D0")); });
        usleep(500 * 1000);
    }
    poller.join();
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", missing(r.out + r.err, {"LINK LOST, ", "lost and not back after", "D0 |     --",
                                          "link lost, unknown since (last read "}))
        << r.out << r.err;
}

TEST(ToolsTest, BadInputGivesAClearMessageAndStatusTwo)
{
    const std::string rvpoll = "'" RVPOLL_PATH "' ";
    const std::string null = rvpoll + "--port /dev/null ";
    // The driver as if built against the other Qt: its QtCore soname swapped.
    const std::string otherQt = scratchFile(), vars = scratchFile("D0\nD1 Q5\n");
    run("cp '" DRIVER_PATH "' " + otherQt + " && perl -0777 -pi -e " +
        "'s/libQtCore\\.so\\.4\\0/libQt5Core.so\\0\\0/g or "
        "s/libQt5Core\\.so\\.5/libQtCore.so.4\\0/g' " +
        otherQt);
    const std::pair<std::string, const char *> cases[] = {
        {null + "D70000", "bad address '70000'"},
        {null + "X8", "octal"},
        {null + "--once --scans 3 D0", "--once is one scan: leave --scans out, or --once"},
        {null + "--vars " + vars, ":2: unknown area 'Q' in 'Q5'"},
        {null + "--multi-station D0", "station prefix"},
        {null + "--write M5=2 M5", "0 or 1"},
        {null + "--write D0-D3=1 D0", "write to one element"},
        {null + "--write D7999=1,2 D0", "past the end of the D area, whose last element is D7999"},
        {rvpoll + "D0-D9", "no serial port"},
        {rvpoll + "/dev/null --parity=x D0", "bad value 'x' for --parity"},
        {rvpoll + "/dev/null --format=float D0", "even number of registers"},
        {rvpoll + "/dev/null 1:D0 2:D0", "or --multi-station"},
        {rvpoll + "/dev/null 3:D0", "3:D0 names station 3: without --multi-station every element "
                                    "is station 1's (-a); use -a 3, or --multi-station"},
        {rvpoll + "/dev/null -b 12345 D0",
         "bad value '12345' for --baud (a speed a serial driver offers, 50 to 4000000: 9600, "},
        {rvpoll + "--lib='" DRIVER_PATH "' -a 1 -b 9600 -P none -l 5 -1 --port=/dev/null D0",
         "cannot open /dev/null: not a serial port"},
        {poll("/dev/rv-no-such-port", "D0"), "cannot open /dev/rv-no-such-port"},
        {null + "--lib /nonexistent/libdriver.so D0", "cannot load driver"},
        {null + "--lib libm.so.6 D0", "lacks the entry point SetComInfo"},
        {null + "--lib " + otherQt + " D0", ", but rvpoll runs on Qt "},
        {null + "--monitor D0", "--monitor listens to all: it takes no variables"},
        {rvpoll + "--replay x.pcapng", "--replay goes with --monitor"},
        {rvpoll + "--monitor --replay /nonexistent.pcapng", "cannot read /nonexistent.pcapng"},
        {null + "--capture /nonexistent/x.pcapng D0", "cannot create /nonexistent/x.pcapng"},
    };
    for (const auto &c : cases) {
        const Result r = run(c.first);
        EXPECT_EQ(2, r.status) << c.first;
        EXPECT_EQ("", missing(r.err, {c.second})) << c.first << ": " << r.err;
    }
    unlink(otherQt.c_str());
    unlink(vars.c_str());
}

// rvsim as the far end of a remote link: rvpoll's requests and frames sent
// as they are, each with what comes back and what rvsim logs of it.
TEST(ToolsTest, RemoteLinkEndToEnd)
{
    const std::string data = scratchFile("D100=0x1234 D109=0xBEEF M5=1 M15=1 X10=1\n");
    Sim sim("--remote-link -v --data " + data);
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    // A read of D100, count 10, station 1, owner type 2, worked out by hand.
    const std::string head("\x16\x02\x00\x00", 4), rest("\x00\x0E\x00\x00\x00\x64\x00\x0A", 8);
    const std::string spares(8, '\0');
    std::string longWrite = "--block 120 --write D300=1";
    for (int v = 2; v <= 120; ++v)
        longWrite += "," + std::to_string(v);
    const struct {
        std::string sent;                 // a frame as it is, or rvpoll's arguments
        std::vector<const char *> shown;  // the whole reply in hex, or in rvpoll's output
        const char *logged;
    } cases[] = {
        {head + '\x01' + rest + spares + '\x95',
         {"01 03 14 12 34 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 BE EF 96 0E"},
         "owner 2, link 0, station 1, D100, count 10 as function 0x03 address 100 count 10: ok"},
        {head + '\x01' + rest + spares + '\x94', {}, "D100, count 10: not answered: bad sum 0x94"},
        {head + '\x00' + rest + spares + '\x94', {}, "station 0, D100, count 10 as function 0x03"},
        {std::string("\x16\0\0\0\x01\0\x1A\0\0\0\0\0\x01", 13) + spares + '\x32',
         {"01 83 02 C0 F1"},
         "area 26 element 0, count 1 as function 0x03 address 0 count 1: exception 0x02"},
        // M0 blinks by itself: M1 to M15 are checked.
        {"D100-D109 M0-M15 X0-X17",
         {"D100 |   4660      0", "0 0 0 0 1 0 0 0 0 0 0 0 0 0 1\n", "X10  | 1 0 0 0"},
         "X0, count 2 as function 0x01 address 20480 count 16: ok"},
        {"--write D200=0x1234 --write M11=1 D200 M8-M15",
         {"D200 |   4660", "M8   | 0 0 0 1 0 0 0 1", "write M11=1: written"},
         "D200, count 1, values 34 12 as function 0x10 address 200 count 1: ok"},
        {"--station 0 --write D60=5 D60", {}, "register 60 = 0x0005"},
        // Another link: the driver checks the reply and stores nothing.
        {"--link-no 3 D100",
         {"D100 |     --", "answered on another link"},
         "remote read, owner 0, link 3, station 1, D100, count 1 as"},
        {longWrite + " D419",
         {"D419 |    120"},
         "has wrapped: the sum closes the frame at 262 bytes"},
    };
    for (const auto &c : cases) {
        if (c.sent[0] == '\x16') {
            EXPECT_EQ(c.shown.empty() ? "" : c.shown[0], sendRaw(sim.path(), c.sent)) << c.logged;
        } else {
            const Result r = run(poll(sim.path(), "--remote-link --once " + c.sent));
            EXPECT_EQ("", missing(r.out + r.err, c.shown)) << c.sent << ": " << r.out << r.err;
        }
        EXPECT_TRUE(sim.waitFor({c.logged})) << sim.output();
    }
    sim.stop();
    EXPECT_EQ("", missing(sim.output(), {", 1 not understood"})) << sim.output();
    unlink(data.c_str());
}

// A commissioning scan finds the simulator at its own baud rate and station
// only (it answers nothing sent at another speed), and nothing on a line
// where no station asked for answers; every JSON line parses.
TEST(ToolsTest, ScanFindsTheControllersSettingsOnly)
{
    Sim controller("--baud 38400 --station 7"), empty("--station 200");
    const struct {
        const Sim &line;
        const char *scan;
        int status;
        std::vector<const char *> said;
    } cases[] = {
        {controller,
         "--scan-stations 5-9 --scan-bauds 9600,38400,57600",
         0,
         {"{\"baud\":38400,\"parity\":\"even\",\"stop\":1,\"station\":7,\"rtt_ms\":",
          " -b 38400 -P even -s 1 -a 7 D0-D9\"}", "\"finds\":1,\"combinations\":4,"}},
        {empty, "--scan-stations 1-3 --scan-bauds 9600,19200", 1, {"\"finds\":0,"}},
    };
    for (const auto &c : cases) {
        const Result r = run(poll(c.line.path(), std::string("--scan --json ") + c.scan));
        EXPECT_EQ(c.status, r.status) << c.scan << r.err;
        EXPECT_EQ("", missing(r.out, c.said)) << c.scan << ": " << r.out;
        EXPECT_EQ("", jsonFaults(r.out));
    }
}
