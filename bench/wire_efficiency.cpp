// Wire efficiency of the driver's block reads against reading every
// variable with its own request. Both clients scan the same scattered
// variables from the controller simulator over one pseudo-terminal; the
// program counts frames and bytes per scan, times the scans, checks that
// both read the same values, and prints a table (and JSON with --json).
//
// With --rvpoll the same variables are also polled once by the runtime
// stand-in, which loads the shared library the way a panel does.
//
// Line times add the controller's turnaround, the time it takes between a
// request's end and its reply's start, once per frame (--turnaround-ms,
// 10 ms by default, a common figure for serial PLCs).
//
//   wire_efficiency [--vars N] [--scans K] [--turnaround-ms T] [--json FILE]
//                   [--rvpoll PATH]
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <modbus.h>

#include "driver/driver_object.h"
#include "frames/address_map.h"
#include "sim/server/modbus_server.h"
#include "support/driver_reset.h"

namespace {

struct Var {
    int areaType;
    const char *name;
    int address;  // element address
    int count;    // bits or registers
};

struct ScanStats {
    long frames = 0;
    long bytes = 0;
    long failures = 0;
    long distinct = 0;   // frames that differ from every other of the scan
    double seconds = 0;  // per scan, averaged
    bool measured = true;
    double processMs = 0;   // rvpoll only: start to exit, library load included
    double cpuSeconds = 0;  // client thread's CPU per scan, simulator excluded
};

// CPU time of the calling thread: unlike the wall clock it does not count
// the time other processes of a busy machine take.
double threadCpuSeconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

// Scattered variables in six areas with gaps of varying width, the mix of
// a typical panel: mostly single words and bits, some 32-bit pairs.
std::vector<Var> scatteredVariables(int total)
{
    struct Area {
        int type;
        const char *name;
        int share;
        int capacity;
        int maxGap;
    };
    const Area areas[] = {{14, "D", 35, 8000, 9}, {17, "FD", 15, 6144, 12}, {19, "SD", 10, 4096, 7},
                          {20, "HD", 5, 1000, 4}, {2, "M", 25, 8000, 20},   {1, "Y", 10, 8384, 30}};
    unsigned seed = 12345;
    std::vector<Var> vars;
    for (const Area &a : areas) {
        const int n = total * a.share / 100;
        int address = 0;
        for (int i = 0; i < n; ++i) {
            seed = seed * 1103515245u + 12345u;
            const int step = 1 + int((seed >> 16) % unsigned(a.maxGap));
            const int count = (a.type >= 14 && (seed >> 8) % 5 == 0) ? 2 : 1;
            if (address + count > a.capacity)
                break;
            vars.push_back(Var{a.type, a.name, address, count});
            address += count + step;
        }
    }
    return vars;
}

uint16_t registerValue(int reg)
{
    return uint16_t(reg * 7 + 3);
}
bool coilValue(int coil)
{
    return coil % 3 == 0;
}

bool isBit(int areaType)
{
    return areaType < 14;
}

// Reads up to `want` bytes, giving up after a quiet line.
int readReply(int fd, unsigned char *buf, int want)
{
    int got = 0;
    while (got < want) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, got == 0 ? 1000 : 100) <= 0)
            break;
        const ssize_t n = read(fd, buf + got, size_t(want - got));
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            break;
        }
        got += int(n);
    }
    return got;
}

bool writeAll(int fd, const char *data, int length)
{
    while (length > 0) {
        const ssize_t n = write(fd, data, size_t(length));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        length -= int(n);
    }
    return true;
}

// The driver's polling loop, as the runtime drives it, for whole scans.
ScanStats scanWithDriver(int fd, const std::vector<Var> &vars, int scans)
{
    resetDriver();  // station 1, 64-unit blocks, as rvpoll sets it up
    QList<VarInfo> list;
    for (const Var &v : vars) {
        VarInfo vi;
        vi.areaType = static_cast<unsigned char>(v.areaType);
        vi.station = 1;
        vi.areaName = QString(v.name);
        vi.addressText = QString::number(v.address, v.areaType <= 1 ? 8 : 10);
        vi.count = v.count;
        list.append(vi);
    }
    ReCreatReadVarList(&list);
    const int perScan = PLC_driver.readList.size();

    ScanStats s;
    std::set<std::tuple<int, int, int, int>> blocks;
    for (const RW_VAR &r : PLC_driver.readList)
        blocks.insert(std::make_tuple(r.station, r.areaType, r.address, r.count));
    s.distinct = long(blocks.size());
    std::vector<unsigned char> buf(512);
    const double c0 = threadCpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    for (int scan = 0; scan < scans; ++scan) {
        for (int i = 0; i < perScan; ++i) {
            // The runtime's own loop: frame out, reply in, reply handed over.
            Protocol *p = ComCommunication();
            if (p == nullptr)
                break;
            tcflush(fd, TCIFLUSH);
            if (!writeAll(fd, p->frame.constData(), p->sendLength))
                return s;
            const int want = p->replyLength > 0 ? p->replyLength : 0;
            if (int(buf.size()) < want)
                buf.resize(size_t(want));
            const int got = want > 0 ? readReply(fd, buf.data(), want) : 0;
            s.frames += 1;
            s.bytes += p->sendLength + got;
            QByteArray reply(reinterpret_cast<const char *>(buf.data()), got);
            if (DataCom(&reply, got)->result != 1)
                s.failures += 1;
        }
    }
    const auto t1 = std::chrono::steady_clock::now();
    s.cpuSeconds = (threadCpuSeconds() - c0) / scans;
    s.seconds = std::chrono::duration<double>(t1 - t0).count() / scans;
    s.frames /= scans;
    s.bytes /= scans;
    return s;
}

// A plain libmodbus client that reads each variable with its own request.
ScanStats scanOnePerVariable(const char *device, const std::vector<Var> &vars, int scans,
                             std::vector<uint16_t> &values)
{
    ScanStats s;
    modbus_t *ctx = modbus_new_rtu(device, 115200, 'E', 8, 1);
    if (ctx == nullptr || modbus_set_slave(ctx, 1) != 0 || modbus_connect(ctx) != 0) {
        if (ctx != nullptr)
            modbus_free(ctx);
        s.failures = long(vars.size());
        return s;
    }
    modbus_set_response_timeout(ctx, 1, 0);
    values.assign(vars.size() * 2, 0);
    const double c0 = threadCpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    for (int scan = 0; scan < scans; ++scan) {
        for (size_t i = 0; i < vars.size(); ++i) {
            const Var &v = vars[i];
            int rc;
            long replyBytes;
            if (isBit(v.areaType)) {
                uint8_t bits[2] = {0, 0};
                rc = modbus_read_bits(ctx, BitElementToCoil(v.areaType, v.address), v.count, bits);
                values[2 * i] = bits[0];
                replyBytes = 5 + (v.count + 7) / 8;
            } else {
                rc = modbus_read_registers(ctx, WordElementToRegister(v.areaType, v.address),
                                           v.count, &values[2 * i]);
                replyBytes = 5 + 2 * v.count;
            }
            s.frames += 1;
            s.bytes += 8 + (rc == v.count ? replyBytes : 0);
            if (rc != v.count)
                s.failures += 1;
        }
    }
    const auto t1 = std::chrono::steady_clock::now();
    s.cpuSeconds = (threadCpuSeconds() - c0) / scans;
    modbus_close(ctx);
    modbus_free(ctx);
    s.seconds = std::chrono::duration<double>(t1 - t0).count() / scans;
    s.frames /= scans;
    s.bytes /= scans;
    return s;
}

// Values the driver holds after its scans must equal what the plain client
// read; returns the number of variables that differ.
int compareValues(const std::vector<Var> &vars, const std::vector<uint16_t> &values)
{
    int differ = 0;
    for (size_t i = 0; i < vars.size(); ++i) {
        const Var &v = vars[i];
        QByteArray out;
        const QString text = QString::number(v.address, v.areaType <= 1 ? 8 : 10);
        GetRegisterData(QString(v.name), v.areaType, text, 1, &out, v.count);
        if (isBit(v.areaType)) {
            if (out.size() < 1 || (out.at(0) != 0) != (values[2 * i] != 0))
                ++differ;
        } else {
            for (int k = 0; k < v.count; ++k) {
                const int lo = out.size() > 2 * k ? (unsigned char)out.at(2 * k) : -1;
                const int hi = out.size() > 2 * k + 1 ? (unsigned char)out.at(2 * k + 1) : -1;
                if (lo != (values[2 * i + k] & 0xFF) || hi != (values[2 * i + k] >> 8)) {
                    ++differ;
                    break;
                }
            }
        }
    }
    return differ;
}

// A number that follows `"key":` in a line of JSON, or -1.
double jsonNumber(const std::string &line, const char *key)
{
    const std::string k = std::string("\"") + key + "\":";
    const size_t at = line.find(k);
    return at == std::string::npos ? -1 : std::atof(line.c_str() + at + k.size());
}

// One scan by rvpoll over the same line: frames and scan time from its
// JSON line. It builds the same requests through the same library, so when
// its frame count equals the driver loop's, so do its bytes.
ScanStats scanWithRvpoll(const char *rvpoll, const char *device, const std::vector<Var> &vars,
                         const ScanStats &driver)
{
    ScanStats s;
    s.measured = false;
    char path[] = "/tmp/rv-wire-vars-XXXXXX";
    const int vf = mkstemp(path);
    if (vf < 0)
        return s;
    std::string text;
    for (const Var &v : vars) {
        const int base = v.areaType <= 1 ? 8 : 10;
        text += v.name + QString::number(v.address, base).toStdString();
        if (v.count > 1)
            text += std::string("-") + v.name +
                    QString::number(v.address + v.count - 1, base).toStdString();
        text += '\n';
    }
    const bool written = writeAll(vf, text.data(), int(text.size()));
    close(vf);
    int out[2];
    if (!written || pipe(out) != 0) {
        unlink(path);
        return s;
    }
    const auto t0 = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        close(out[0]);
        close(out[1]);
        execl(rvpoll, rvpoll, "--port", device, "--once", "--json", "--vars", path,
              static_cast<char *>(nullptr));
        _exit(127);
    }
    close(out[1]);
    std::string output;
    char chunk[4096];
    for (;;) {
        const ssize_t n = read(out[0], chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        output.append(chunk, size_t(n));
    }
    close(out[0]);
    int status = 0;
    if (pid > 0)
        waitpid(pid, &status, 0);
    const auto t1 = std::chrono::steady_clock::now();
    unlink(path);
    const size_t start = output.rfind("{\"scan\"");
    if (pid <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0 || start == std::string::npos)
        return s;
    const std::string line = output.substr(start);
    s.measured = true;
    s.frames = long(jsonNumber(line, "frames"));
    s.failures = long(jsonNumber(line, "retries")) + long(jsonNumber(line, "given_up"));
    s.seconds = jsonNumber(line, "scan_ms") / 1e3;
    s.bytes = s.frames == driver.frames ? driver.bytes : -1;
    s.processMs = std::chrono::duration<double>(t1 - t0).count() * 1e3;
    s.cpuSeconds = -1;  // its CPU is another process's
    return s;
}

// Controller turnaround per frame, seconds.
double turnaround = 0.010;

// Time on a real line for the same traffic, 8E1 (11 bits a character), each
// frame followed by the 3.5-character silence (1.75 ms above 19200 baud),
// and the controller's turnaround before every reply.
double lineSeconds(const ScanStats &s, int baud)
{
    const double character = 11.0 / baud;
    const double gap = baud > 19200 ? 0.00175 : 3.5 * character;
    return s.bytes * character + 2.0 * s.frames * gap + s.frames * turnaround;
}

void printRow(const char *name, const ScanStats &s)
{
    if (s.bytes < 0) {
        std::printf("%-28s %8ld %10s %12.2f %12s %12s %12s %12s %9ld\n", name, s.frames, "?",
                    s.seconds * 1e3, "?", "?", "?", "?", s.failures);
        return;
    }
    char cpu[32] = "?";
    if (s.cpuSeconds >= 0)
        std::snprintf(cpu, sizeof cpu, "%.2f", s.cpuSeconds * 1e3);
    std::printf("%-28s %8ld %10ld %12.2f %12s %12.1f %12.1f %12.1f %9ld\n", name, s.frames, s.bytes,
                s.seconds * 1e3, cpu, lineSeconds(s, 9600) * 1e3, lineSeconds(s, 19200) * 1e3,
                lineSeconds(s, 115200) * 1e3, s.failures);
}

void jsonRow(FILE *f, const char *key, const ScanStats &s, bool last)
{
    if (s.bytes < 0) {
        std::fprintf(f, "  \"%s\": {\"frames\": %ld, \"pty_ms\": %.3f, \"failures\": %ld}%s\n", key,
                     s.frames, s.seconds * 1e3, s.failures, last ? "" : ",");
        return;
    }
    std::fprintf(f,
                 "  \"%s\": {\"frames\": %ld, \"bytes\": %ld, \"pty_ms\": %.3f, \"cpu_ms\": %.3f, "
                 "\"line_ms_9600\": %.1f, \"line_ms_19200\": %.1f, \"line_ms_115200\": %.1f, "
                 "\"failures\": %ld}%s\n",
                 key, s.frames, s.bytes, s.seconds * 1e3, s.cpuSeconds * 1e3,
                 lineSeconds(s, 9600) * 1e3, lineSeconds(s, 19200) * 1e3,
                 lineSeconds(s, 115200) * 1e3, s.failures, last ? "" : ",");
}

}  // namespace

int main(int argc, char **argv)
{
    int total = 2000;
    int scans = 3;
    const char *jsonPath = nullptr;
    const char *rvpoll = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--vars" && i + 1 < argc)
            total = std::atoi(argv[++i]);
        else if (a == "--scans" && i + 1 < argc)
            scans = std::atoi(argv[++i]);
        else if (a == "--turnaround-ms" && i + 1 < argc)
            turnaround = std::atof(argv[++i]) / 1e3;
        else if (a == "--json" && i + 1 < argc)
            jsonPath = argv[++i];
        else if (a == "--rvpoll" && i + 1 < argc)
            rvpoll = argv[++i];
        else {
            std::fprintf(stderr,
                         "usage: %s [--vars N] [--scans K] [--turnaround-ms T] [--json FILE] "
                         "[--rvpoll PATH]\n",
                         argv[0]);
            return 2;
        }
    }
    if (total < 6 || scans < 1 || !(turnaround >= 0)) {
        std::fprintf(stderr, "need --vars of at least 6, --scans of at least 1 and a "
                             "turnaround of 0 ms or more\n");
        return 2;
    }

    int master = -1, slave = -1;
    char device[128] = {0};
    if (openpty(&master, &slave, device, nullptr, nullptr) != 0) {
        std::perror("openpty");
        return 1;
    }
    termios raw;
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);

    ModbusServer server(master);
    for (int r = 0; r < 65536; ++r)
        server.setRegister(r, registerValue(r));
    for (int c = 0; c < 65536; ++c)
        server.setCoil(c, coilValue(c));
    if (!server.start()) {
        std::fprintf(stderr, "simulator did not start\n");
        return 1;
    }

    const std::vector<Var> vars = scatteredVariables(total);
    const ScanStats driver = scanWithDriver(slave, vars, scans);
    std::vector<uint16_t> values;
    const ScanStats plain = scanOnePerVariable(device, vars, scans, values);
    const int differ = compareValues(vars, values);
    ScanStats stand;
    stand.measured = false;
    if (rvpoll != nullptr)
        stand = scanWithRvpoll(rvpoll, device, vars, driver);
    server.stop();
    close(slave);
    close(master);

    const double frameRatio = driver.frames > 0 ? double(plain.frames) / driver.frames : 0;
    const double byteRatio = driver.bytes > 0 ? double(plain.bytes) / driver.bytes : 0;
    const double timeRatio = driver.seconds > 0 ? plain.seconds / driver.seconds : 0;
    std::printf("%zu variables, %d scans each, station 1, blockUnits 64, turnaround %.1f ms\n",
                vars.size(), scans, turnaround * 1e3);
    std::printf("%-28s %8s %10s %12s %12s %12s %12s %12s %9s\n", "client", "frames", "bytes",
                "pty ms/scan", "cpu ms/scan", "9600 ms", "19200 ms", "115200 ms", "failures");
    printRow("driver (block reads)", driver);
    printRow("libmodbus, one per variable", plain);
    if (stand.measured)
        printRow("rvpoll --once (library)", stand);
    else if (rvpoll != nullptr)
        std::printf("rvpoll did not complete a scan\n");
    std::printf("ratio (one per variable / driver): frames %.1fx, bytes %.1fx, pty time %.1fx\n",
                frameRatio, byteRatio, timeRatio);
    std::printf("distinct block reads among the driver's frames: %ld\n", driver.distinct);
    std::printf("values that differ between the two clients: %d\n", differ);

    if (jsonPath != nullptr) {
        FILE *f = std::fopen(jsonPath, "w");
        if (f == nullptr) {
            std::perror(jsonPath);
            return 1;
        }
        std::fprintf(f, "{\n  \"variables\": %zu,\n  \"scans\": %d,\n  \"turnaround_ms\": %.3f,\n",
                     vars.size(), scans, turnaround * 1e3);
        jsonRow(f, "driver", driver, false);
        jsonRow(f, "one_per_variable", plain, false);
        if (stand.measured) {
            jsonRow(f, "rvpoll", stand, false);
            std::fprintf(f, "  \"rvpoll_process_ms\": %.1f,\n", stand.processMs);
        }
        std::fprintf(f, "  \"ratio_frames\": %.2f,\n  \"ratio_bytes\": %.2f,\n", frameRatio,
                     byteRatio);
        std::fprintf(f, "  \"ratio_time\": %.2f,\n  \"driver_distinct_frames\": %ld,\n", timeRatio,
                     driver.distinct);
        std::fprintf(f, "  \"values_differ\": %d\n}\n", differ);
        std::fclose(f);
    }
    const bool ok = driver.failures == 0 && plain.failures == 0 && differ == 0 &&
                    (rvpoll == nullptr || (stand.measured && stand.failures == 0));
    return ok ? 0 : 1;
}
