// rvpoll --monitor as a field engineer uses it: listening to a line that
// rvpoll polls through rvsim (faults and all) on rvsim's tap, accounting
// for every exchange rvpoll made; never writing to what it listens on;
// captures Wireshark's tshark decodes frame by frame; a replay that gives
// the same lines as the live run.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "link/bytes.h"
#include "support/run_command.h"
#include "support/rvsim_process.h"

namespace {

std::string rvpoll(const std::string &args)
{
    return "'" RVPOLL_PATH "' --lib '" DRIVER_PATH "' " + args;
}

// The number right after the first `key` in `text` at or after `from`, or -1.
long numberAfter(const std::string &text, const std::string &from, const std::string &key)
{
    const size_t at = text.find(from);
    const size_t k = at == std::string::npos ? at : text.find(key, at);
    return k == std::string::npos ? -1 : atol(text.c_str() + k + key.size());
}

// The number that starts the line holding `words`, or 0.
long lineNumber(const std::string &text, const std::string &words)
{
    const size_t at = text.find(words);
    return at == std::string::npos ? 0 : atol(text.c_str() + text.rfind('\n', at) + 1);
}

// `text` with what differs from run to run (clock times, milliseconds) blanked.
std::string withoutTimes(std::string text)
{
    return runCommand(
        "printf '%s' '" + text +
        "' | sed -E 's/[0-9:.T-]+Z?\"?,/T,/; "
        "s/^[0-9:.]+ //; s/[0-9.]+ ms/N ms/; s/\"reply_ms\":[0-9.]+/\"reply_ms\":N/'");
}

bool haveTshark()
{
    return runCommand("command -v tshark") != "";
}

// tshark's fields of a capture, a line per frame: number, comment, station.
std::string tsharkFields(const std::string &capture)
{
    return runCommand("tshark -r " + capture +
                      " -o 'uat:user_dlts:\"User 0 (DLT=147)\",\"mbrtu\",\"0\",\"\",\"0\",\"\"' "
                      "-o mbrtu.crc_verification:TRUE -T fields -e frame.comment -e mbrtu.unit_id "
                      "-e mbrtu.crc16.status 2>/dev/null");
}

using rvlink::Bytes;

size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

}  // namespace

TEST(MonitorTest, AccountsForEveryExchangeOfAPolledLine)
{
    const std::string presets = scratchFile("D0=1200\nD1=345\nD3=7\nM1=1\nM5=1\n");
    const std::string tap = scratchFile(), live = scratchFile(), polled = scratchFile();
    unlink(tap.c_str());
    // Replies in pieces 20 ms apart, far longer than 3.5 characters.
    Sim sim("--tap " + tap + " --tick-ms 60000 --data " + presets +
            " --pieces 6,20 --seed 3 --script ok,lose,drop,crc,cut,noise,exception");
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    Background monitor(
        "exec " + rvpoll("--monitor " + tap + " --json --timeout-ms 150 --capture " + live), true);
    usleep(300000);
    const std::string poll =
        runCommand(rvpoll("--port " + sim.path() + " --scans 3 --timeout-ms 150 --json --capture " +
                          polled + " D0-D3 M0-M15 2>&1"));
    usleep(300000);
    ASSERT_EQ(130, monitor.finish(SIGINT)) << monitor.errors();
    const std::string heard = monitor.output();

    // As many exchanges as rvpoll sent frames, ending as rvpoll saw them.
    const long frames = lineNumber(poll, " frames transmitted");
    const size_t summary = heard.find("{\"summary\"");
    ASSERT_NE(std::string::npos, summary) << heard;
    const std::string counts = heard.substr(summary);
    EXPECT_EQ(frames, numberAfter(counts, "{", "\"exchanges\":")) << heard << poll;
    EXPECT_EQ(size_t(frames), count(heard, "\"station\":1,"));
    for (const char *key : {"\"no_answer\":", "\"cut\":", "\"bad_crc\":"})
        EXPECT_EQ(numberAfter(poll, "\"line\"", key), numberAfter(counts, "\"stations\"", key))
            << key << "\n"
            << heard << poll;
    EXPECT_EQ(numberAfter(poll, "", "frames transmitted, "),
              numberAfter(counts, "\"stations\"", "\"answered\":") +
                  numberAfter(counts, "\"stations\"", "\"exceptions\":") +
                  numberAfter(counts, "\"stations\"", "\"bad_crc\":"))
        << heard << poll;
    // The values rvpoll shows, in element names.
    EXPECT_NE(std::string::npos, poll.find("\"D0\":1200,\"D1\":345,\"D2\":0,\"D3\":7")) << poll;
    EXPECT_NE(std::string::npos,
              heard.find("\"values\":{\"D0\":1200,\"D1\":345,\"D2\":0,\"D3\":7}"));
    EXPECT_NE(std::string::npos,
              heard.find("\"M0\":0,\"M1\":1,\"M2\":0,\"M3\":0,\"M4\":0,\"M5\":1"));
    EXPECT_NE(std::string::npos, heard.find("\"outcome\":\"exception 0x04 (device failure)\""));

    // The replay of the monitor's capture gives the same lines; that of
    // rvpoll's own capture the same exchanges, timed by rvpoll.
    EXPECT_EQ(heard, runCommand(rvpoll("--monitor --json --timeout-ms 150 --replay " + live)));
    const std::string fromPoll =
        runCommand(rvpoll("--monitor --json --timeout-ms 150 --replay " + polled));
    EXPECT_EQ(withoutTimes(heard.substr(0, summary)),
              withoutTimes(fromPoll.substr(0, fromPoll.find("{\"summary\""))));

    // tshark decodes every frame of both, with the station and the marks.
    if (!haveTshark())
        GTEST_SKIP() << "tshark is not installed (scripts/lib.sh installs it with the base set)";
    const long badCrc = numberAfter(poll, "\"line\"", "\"bad_crc\":");
    for (const std::string &capture : {live, polled}) {
        const std::string fields = tsharkFields(capture);
        EXPECT_EQ(size_t(frames), count(fields, "request; last byte")) << fields;
        EXPECT_EQ(size_t(badCrc), count(fields, "bad CRC; last byte")) << fields;
        // Each request and whole reply decoded as station 1's, a bad CRC
        // found bad (status 0) and a good one good (1).
        for (size_t at = 0, end; at < fields.size(); at = end + 1) {
            end = fields.find('\n', at);
            const std::string line = fields.substr(at, end - at);
            const bool whole = line.find("cut short") != 0 && line.find("noise") != 0;
            const char *decoded = line.find("bad CRC") == 0 ? "\t1\t0" : "\t1\t1";
            EXPECT_TRUE(!whole || line.find(decoded) != std::string::npos) << line;
        }
    }
    for (const std::string &f : {tap, live, polled, presets})
        unlink(f.c_str());
}

TEST(MonitorTest, ListensWithoutSendingAndNamesWhatItHears)
{
    int master = -1, slave = -1;
    char name[128];
    ASSERT_EQ(0, openpty(&master, &slave, name, nullptr, nullptr));
    close(slave);
    Background monitor("exec " + rvpoll("--monitor " + std::string(name) + " --timeout-ms 100"),
                       true);
    usleep(300000);
    // Each piece of the line, and how long after the one before it came.
    const std::vector<std::pair<int, Bytes>> line = {
        {0, {0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x09}},  // D0-D3
        {10, {0x01, 0x03, 0x08, 0x00, 0x01}},                   // its reply in pieces
        {30, {0x00, 0x02, 0x00, 0x03}},
        {30, {0x00, 0x04, 0x0D, 0x14}},
        {20, {0x01, 0x01, 0x50, 0x00, 0x00, 0x10, 0x2C, 0xC6}},        // X0-X17: X0, X7 on
        {10, {0x01, 0x01, 0x02, 0x81, 0x00, 0xD9, 0xAC, 0xAA, 0xBB}},  // then noise
        {20, {0x01, 0x06, 0x00, 0x64, 0x12, 0x34, 0xC5, 0x62}},        // D100 = 0x1234
        {10, {0x01, 0x06, 0x00, 0x64, 0x12, 0x34, 0xC5, 0x62}},        // its echo
        {20, {0x01, 0x03, 0x80, 0x05, 0x00, 0x01, 0xBD, 0xCB}},        // TD5, refused
        {10, {0x01, 0x83, 0x02, 0xC0, 0xF1}},
        {20, {0x01, 0x03, 0xFF, 0xF0, 0x00, 0x02, 0xF4, 0x2C}},  // no element's registers
    };
    for (const auto &piece : line) {
        usleep(useconds_t(piece.first * 1000));
        ASSERT_EQ(ssize_t(piece.second.size()),
                  write(master, piece.second.data(), piece.second.size()));
    }
    // Nothing comes back from the monitor's end of the line.
    pollfd p = {master, POLLIN, 0};
    EXPECT_EQ(0, poll(&p, 1, 400));
    EXPECT_EQ(130, monitor.finish(SIGINT)) << monitor.errors();
    close(master);
    EXPECT_EQ("station 1 read D0-D3: ok N ms D0=1 D1=2 D2=3 D3=4\n"
              "station 1 read X0-X17: ok N ms X0=1 X1=0 X2=0 X3=0 X4=0 X5=0 X6=0 X7=1 X10=0 "
              "X11=0 X12=0 X13=0 X14=0 X15=0 X16=0 X17=0\n"
              "noise (2 bytes): AA BB\n"
              "station 1 write D100: ok N ms D100=4660\n"
              "station 1 read TD5: exception 0x02 (illegal data address) N ms\n"
              "station 1 read register 65520-65521: no reply\n",
              withoutTimes(monitor.output()));

    // A capture of another tool (pcap, no marks) of a remote link's read.
    const std::string pcap = scratchFile();
    runCommand("python3 -c 'import struct,sys\n"
               "req = bytes([0x16,0,0,0,1,0,0x0E,0,0,0,0x64,0,2] + [0]*8 + [0x8B])\n"
               "rep = bytes([1,3,4,0,0x0A,0,0x0B,0x9B,0xF6])\n"
               "rec = lambda us, b: struct.pack(\"<IIII\", 1700000000, us, len(b), len(b)) + b\n"
               "sys.stdout.buffer.write(struct.pack(\"<IHHiIII\", 0xA1B2C3D4, 2, 4, 0, 0, "
               "65535, 147) + rec(0, req) + rec(20000, rep))' >" +
               pcap);
    EXPECT_EQ("station 1 read D100-D101: ok N ms D100=10 D101=11\n",
              withoutTimes(runCommand(rvpoll("-q --monitor --remote-link --replay " + pcap))));
    EXPECT_NE(std::string::npos,
              runCommand(rvpoll("--monitor --remote-link --replay " + pcap + " --json"))
                  .find("\"reply_ms\":20.00"));
    unlink(pcap.c_str());
}
