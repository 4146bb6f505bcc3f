// rvpoll reaching a line through the network, by parts no one here wrote:
// Debian's ser2net (raw TCP and RFC 2217) in front of rvsim's
// pseudo-terminal, and Debian's pymodbus as a Modbus TCP server. All on
// 127.0.0.1; native only, as the tools are.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "support/tool_run.h"

namespace {

// A port nobody listens on now.
int freePort()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof a;
    bind(fd, reinterpret_cast<sockaddr *>(&a), size);
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &size);
    close(fd);
    return ntohs(a.sin_port);
}

// Waits up to five seconds for a listener on 127.0.0.1:`port` (the
// kernel's table, so no connection disturbs the server).
bool listening(int port)
{
    char entry[32];
    snprintf(entry, sizeof entry, "0100007F:%04X 00000000:0000 0A", port);
    for (int waited = 0; waited < 5000; waited += 50, usleep(50000))
        if (readFile("/proc/net/tcp").find(entry) != std::string::npos)
            return true;
    return false;
}

// A gateway: ser2net with one connection, or the Modbus TCP server.
struct Gateway {
    std::string address;  // what rvpoll is given
    std::string command;  // starts it
    int port;
    std::string config;  // ser2net's
    std::unique_ptr<Background> process;
    ~Gateway()
    {
        process.reset();
        if (!config.empty())
            unlink(config.c_str());
    }
    bool start()
    {
        process.reset(new Background(command));
        return listening(port);
    }
};

// ser2net in front of the line at `device`, opened at `speed` (9600e81):
// raw for socket://, with telnet COM port control for rfc2217://.
Gateway ser2net(const std::string &scheme, const std::string &device, const std::string &speed)
{
    const int port = freePort();
    const std::string config = "/tmp/rv-network-test-" + std::to_string(port) + ".yaml";
    std::ofstream(config) << "connection: &line\n  accepter: "
                          << (scheme == "rfc2217" ? "telnet(rfc2217)," : "") << "tcp,127.0.0.1,"
                          << port << "\n  connector: serialdev," << device << "," << speed
                          << ",local\n";
    return {scheme + "://127.0.0.1:" + std::to_string(port),
            "exec /usr/sbin/ser2net -n -d -u -c " + config, port, config, nullptr};
}

Gateway modbusTcpServer(const std::string &presets)
{
    const int port = freePort();
    return {"modbus-tcp://127.0.0.1:" + std::to_string(port),
            "exec /usr/bin/python3 " MODBUS_TCP_SERVER " " + std::to_string(port) + " " + presets,
            port, "", nullptr};
}

// rvsim itself on TCP (`listen`: --listen or --listen-modbus-tcp), its
// address by `scheme`, holding the presets of `data`.
Gateway rvsimListening(const std::string &scheme, const std::string &listen,
                       const std::string &data)
{
    const int port = freePort();
    const std::string at = "127.0.0.1:" + std::to_string(port);
    return {scheme + "://" + at, "exec '" RVSIM_PATH "' --data " + data + " " + listen + " " + at,
            port, "", nullptr};
}

// Why these tests cannot run here, or empty.
std::string unavailable()
{
    if (access("/usr/sbin/ser2net", X_OK) != 0)
        return "ser2net is not installed (Debian package ser2net)";
    if (run("/usr/bin/python3 -c 'import pymodbus.server'").status != 0)
        return "pymodbus cannot start a server (Debian packages python3-pymodbus, "
               "python3-serial-asyncio)";
    return "";
}

}  // namespace

// Polling, a write read back by a fresh run, and a scan through each kind of
// gateway; through RFC 2217 the far port is set from here: rvsim answers only
// at its own 9600 baud, ser2net opens its line at 19200.
TEST(NetworkTest, PollsWritesAndScansThroughEachGateway)
{
    if (!unavailable().empty())
        GTEST_SKIP() << unavailable();
    const std::string data = scratchFile("D10=1010 D11=1011 M3=1\n");
    Sim sim("-v --baud 9600 --data " + data);
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    struct {
        Gateway gateway;
        const char *settings, *scan, *found;
    } cases[] = {
        {ser2net("socket", sim.path(), "9600e81"), "", "", "{\"station\":1,"},
        {ser2net("rfc2217", sim.path(), "19200e81"), "-b 9600",
         "--scan-bauds 19200,9600 --scan-parities even", "{\"baud\":9600,\"parity\":\"even\","},
        {modbusTcpServer("h10=1010 h11=1011 c3=1"), "", "", "{\"station\":1,"},
        // No gateway: rvsim on TCP, raw and Modbus TCP.
        {rvsimListening("socket", "--listen", data), "", "", "{\"station\":1,"},
        {rvsimListening("modbus-tcp", "--listen-modbus-tcp", data), "", "", "{\"station\":1,"},
    };
    for (auto &c : cases) {
        ASSERT_TRUE(c.gateway.start()) << c.gateway.command << c.gateway.process->output();
        const std::string address = c.gateway.address + " " + c.settings;
        Result r = run(poll(address, "--once --write D100=0x1234 --json D10-D11 M0-M7"));
        EXPECT_EQ(0, r.status) << address << r.err;
        EXPECT_EQ("", missing(r.out + r.err, {"\"D10\":1010,\"D11\":1011", "\"M3\":1,\"M4\":0",
                                              "write D100=0x1234: written",
                                              "\"network\":{\"connects\":1,", "network: 1 "}))
            << address << r.out << r.err;
        r = run(poll(address, "--once --json D100"));
        EXPECT_EQ("", missing(r.out, {"\"D100\":4660"})) << address << r.out << r.err;
        // Stations 1 to 3: only rvsim's (the Modbus TCP server's unit 1) answers.
        r = run(
            poll(c.gateway.address, std::string("--scan --json --scan-stations 1-3 ") + c.scan));
        EXPECT_EQ(0, r.status) << address << r.err;
        EXPECT_EQ("", missing(r.out, {c.found, "\"finds\":1,"})) << address << r.out << r.err;
    }
    EXPECT_TRUE(sim.waitFor({"register 100 = 0x1234"})) << sim.output();
    // At another speed than rvsim's, nothing answers through RFC 2217.
    Gateway rfc2217 = ser2net("rfc2217", sim.path(), "9600e81");
    ASSERT_TRUE(rfc2217.start());
    const Result r = run(poll(rfc2217.address, "-b 19200 --once --retries 0 --timeout-ms 100 D10"));
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", missing(r.err, {"the controller never answered (on rfc2217://"})) << r.err;
    unlink(data.c_str());
}

// A gateway that goes away takes the link with it: every value unknown
// with its age, reconnecting with back-off, polling again once it is back.
TEST(NetworkTest, ADroppedConnectionTurnsValuesUnknownAndRecovers)
{
    if (!unavailable().empty())
        GTEST_SKIP() << unavailable();
    const std::string data = scratchFile("D10=1010\n");
    Sim sim("--data " + data);
    ASSERT_FALSE(sim.path().empty()) << sim.output();
    Gateway gateways[] = {ser2net("socket", sim.path(), "19200e81"), modbusTcpServer("h10=1010")};
    for (Gateway &g : gateways) {
        ASSERT_TRUE(g.start()) << g.command;
        Result r;
        std::thread poller(
            [&] { r = run(poll(g.address, "--duration 5 --timeout-ms 100 --json D10")); });
        usleep(1200 * 1000);
        g.process->stop();
        usleep(1500 * 1000);
        ASSERT_TRUE(g.start()) << g.command;
        poller.join();
        EXPECT_EQ(0, r.status) << g.address << r.err;
        // Connected again at least once (a gateway starting up may drop one more).
        EXPECT_EQ("", missing(r.err, {"lost, reopening", " connections, the last made in"}))
            << g.address << r.err;
        EXPECT_EQ("", missing(r.out.substr(r.out.rfind('\n', r.out.size() - 2)),
                              {"\"D10\":1010", "\"link_up\":true"}))
            << g.address << r.out;

        poller =
            std::thread([&] { r = run(poll(g.address, "--duration 2 --timeout-ms 100 D10")); });
        usleep(700 * 1000);
        g.process->stop();
        poller.join();
        EXPECT_EQ(1, r.status) << g.address << r.err;
        EXPECT_EQ("", missing(r.out + r.err, {"LINK LOST, ", "D10 |     --",
                                              "link lost, unknown since (last read "}))
            << g.address << r.out << r.err;
    }
    unlink(data.c_str());
}
