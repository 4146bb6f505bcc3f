// rvsim: a Quorvel RV controller on a pseudo-terminal, a serial port or TCP,
// answering Modbus RTU (or Modbus TCP) with live values and faults on request.
#include <errno.h>
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <time.h>

#include "line_link.h"
#include "live_data.h"
#include "presets.h"
#include "request_log.h"
#include "sim_options.h"
#include "sim/server/mbap_framing.h"
#include "sim/server/modbus_server.h"
#include "link/serial_port.h"
#include "sim/server/remote_framing.h"
#include "tcp_line.h"

namespace {

int fail(const std::string &message)
{
    fprintf(stderr, "rvsim: %s\n", message.c_str());
    return 2;
}

// The master side of a new raw pseudo-terminal at the line's speed and stop
// bits (it carries no parity), so a poller that sets none is heard; the
// slave side stays open here too, so the line does not hang up between two
// pollers.
bool openPty(const SimOptions &o, int &master, int &slave, std::string &path, std::string &error)
{
    rvlink::LineFormat format = o.line.format;
    format.parity = 'N';
    termios raw;
    if (!rvlink::rawTermios(format, raw, error)) {
        format.baud = 19200;  // no terminal speed is the line's: any is heard
        if (!rvlink::rawTermios(format, raw, error)) {
            error = "cannot set up a pseudo-terminal: " + error;
            return false;
        }
    }
    raw.c_cc[VMIN] = 1;  // a poller that sets nothing waits for a byte
    char name[128];
    if (openpty(&master, &slave, name, &raw, nullptr) != 0) {
        error = "cannot create a pseudo-terminal";
        return false;
    }
    path = name;
    return true;
}

// Whether a driver of real hardware stands behind the terminal `fd`, as
// sysfs shows it; a pseudo-terminal has none.
bool hardwarePort(int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISCHR(st.st_mode))
        return false;
    const std::string device = "/sys/dev/char/" + std::to_string(major(st.st_rdev)) + ":" +
                               std::to_string(minor(st.st_rdev)) + "/device";
    return access(device.c_str(), F_OK) == 0;
}

}  // namespace

int main(int argc, char **argv)
{
    SimOptions o;
    std::string error;
    if (!parseSimOptions(argc, argv, o, error))
        return fail(error + " (rvsim --help for usage)");
    if (o.help || o.version) {
        printf("%s", o.help ? simUsage() : "rvsim (Quorvel RV tools) " RV_VERSION "\n");
        return 0;
    }
    for (const std::string &note : o.notes)
        fprintf(stderr, "rvsim: note: %s\n", note.c_str());
    // SIGINT and SIGTERM are blocked in every thread (the server's inherits
    // the mask) and taken by the main loop's wait, which they end at once.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    LineLink link, tapLink;
    if ((!o.link.empty() && !link.claim(o.link, error)) ||
        (!o.tap.empty() && !tapLink.claim(o.tap, error)))
        return fail(error);
    FILE *log = nullptr;
    if (!o.logFile.empty() && !(log = fopen(o.logFile.c_str(), "a")))
        return fail("cannot open " + o.logFile + ": " + strerror(errno));

    // A serial device is this run's alone (a second program on it is told
    // who holds it) and set up by the link, as every program of the line does.
    rvlink::PortSettings settings;
    settings.path = o.device;
    settings.format = o.line.format;
    rvlink::SerialPort serial(settings);
    int fd = -1, slave = -1;
    std::string path = o.device;
    TcpLine tcp;
    if (!o.listen.empty()) {
        if (!tcp.listen(o.listen, error))
            return fail(error);
        fd = tcp.serverFd();
        path = tcp.address();
    } else if (o.device.empty() ? !openPty(o, fd, slave, path, error) : !serial.open(error)) {
        return fail(error);
    }
    if (serial.isOpen()) {
        fd = serial.fd();
        // A UART sends at its own speed: wire time added on top would count
        // every character twice.
        if (hardwarePort(fd))
            o.line.pace = false;
    }
    // The tap: what a listener on the bus hears, on a pseudo-terminal of its own.
    int tapFd = -1, tapSlave = -1;
    std::string tapPath;
    if (!o.tap.empty()) {
        if (!openPty(o, tapFd, tapSlave, tapPath, error) || !tapLink.point(tapPath, error))
            return fail(error);
        fcntl(tapFd, F_SETFL, fcntl(tapFd, F_GETFL) | O_NONBLOCK);
        o.line.tapFd = tapFd;
    }
    ModbusServer server(fd);
    RemoteFraming remoteFraming;
    MbapFraming mbapFraming;
    if (o.remoteLink)
        server.setFraming(&remoteFraming);
    else if (o.modbusTcp)
        server.setFraming(&mbapFraming);
    server.setStations(o.stations);
    server.setFaults(o.faults);
    server.setScript(o.script);
    server.setLine(o.line);
    server.setRefusals(o.refusals);
    int presets = 0;
    if (!o.dataFile.empty() && !loadPresets(o.dataFile, server, presets, error))
        return fail(error);
    if (!o.link.empty() && !link.point(path, error))
        return fail(error);
    if (log || o.verbose)
        server.setLogger([log, &o](const ModbusServer::LogEntry &e) {
            const std::string line = requestLogLine(e);
            for (FILE *sink : {o.verbose ? stdout : nullptr, log})
                if (sink) {
                    fputs(line.c_str(), sink);
                    fflush(sink);
                }
        });
    if (!server.start() || (!o.listen.empty() && !tcp.start([&o](const std::string &event) {
            if (!o.quiet)
                printf("rvsim: %s\n", event.c_str());
            fflush(stdout);
        })))
        return fail("cannot start the Modbus server");
    LiveData live(server);

    std::string stations;
    for (size_t i = 0; i < o.stations.size(); ++i)
        stations += (i ? "," : "") + std::to_string(o.stations[i]);
    if (!o.dataFile.empty())
        printf("rvsim: %d preset values from %s\n", presets, o.dataFile.c_str());
    printf("rvsim: listening on %s (station %s%s)\n", path.c_str(), stations.c_str(),
           o.remoteLink  ? ", far end of a remote link"
           : o.modbusTcp ? ", Modbus TCP"
                         : "");
    if (tapFd >= 0)
        printf("rvsim: the line heard on %s\n", tapPath.c_str());
    fflush(stdout);

    const timespec tick = {o.tickMs / 1000, o.tickMs % 1000 * 1000000L};
    for (;;) {
        const int got = sigtimedwait(&stopSignals, nullptr, &tick);
        if (got == SIGINT || got == SIGTERM)
            break;
        if (got < 0 && errno != EAGAIN)
            continue;  // interrupted: wait again
        const std::vector<std::string> changes = live.step();
        if (!o.quiet) {
            for (size_t i = 0; i < changes.size(); ++i)
                printf("rvsim: written: %s\n", changes[i].c_str());
            if (!changes.empty())
                fflush(stdout);
        }
    }

    tcp.stop();
    server.stop();
    const ModbusServer::Counters c = server.counters();
    printf("rvsim: stopped after %llu requests, %llu replies, %llu faults",
           (unsigned long long)c.requests, (unsigned long long)c.replies,
           (unsigned long long)c.faults);
    if (c.damaged)
        printf(", %llu not understood (damaged, cut short or at other line settings)",
               (unsigned long long)c.damaged);
    printf("\n");
    link.release();
    tapLink.release();
    if (tapFd >= 0) {
        close(tapFd);
        close(tapSlave);
    }
    if (log)
        fclose(log);
    if (!serial.isOpen() && o.listen.empty()) {
        close(fd);
        close(slave);
    }
    return 0;
}
