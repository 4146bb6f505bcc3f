// The smallest runtime that drives the Quorvel RV driver: it loads the
// library by its soname, hands it a ComInfo record and one polled variable
// (D0..D9), runs the communication loop on a serial port and prints the ten
// registers after every complete scan. Usage:
//   minimal_runtime [--remote-link] /dev/ttyUSB0 [station] [baud] [library]
// --remote-link sends request descriptions for a remote link (ComInfo
// remoteLink) instead of controller frames.
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <quorvel_rv/quorvel_rv_series.h>

#include "reply_reader.h"

namespace {

struct Api {
    void (*SetComInfo)(ComInfo *);
    void (*RegistCallBackFuncIntf)(HostCallBack, int);
    void (*FlashLocalRegister)(void *, void *, void *);
    int (*ReCreatReadVarList)(QList<VarInfo> *);
    Protocol *(*ComCommunication)();
    RW_VAR *(*DataCom)(QByteArray *, int);
    int (*GetRegisterData)(QString, int, QString, int, QByteArray *, int);
};

template <typename F>
bool find(void *lib, const char *name, F &slot)
{
    if (!(slot = reinterpret_cast<F>(dlsym(lib, name))))
        std::fprintf(stderr, "minimal_runtime: %s missing from the driver\n", name);
    return slot != nullptr;
}

// 8 data bits, even parity, one stop bit (8E1), the usual Modbus RTU setting.
// A pseudo-terminal (a simulated line) has no line settings and refuses a
// parity bit, so it is only made raw.
int openPort(const char *path, int baud)
{
    const int fd = open(path, O_RDWR | O_NOCTTY);
    termios tio{};
    if (fd < 0 || tcgetattr(fd, &tio) != 0)
        return -1;
    cfmakeraw(&tio);
    tio.c_cflag |= CLOCAL | CREAD;
    char real[PATH_MAX];
    if (!realpath(path, real) || std::strncmp(real, "/dev/pts/", 9) != 0) {
        tio.c_cflag |= PARENB;
        tio.c_cflag &= ~(CSTOPB | PARODD);
        const speed_t speed = baud == 9600     ? B9600
                              : baud == 38400  ? B38400
                              : baud == 115200 ? B115200
                                               : B19200;
        cfsetispeed(&tio, speed);
        cfsetospeed(&tio, speed);
    }
    return tcsetattr(fd, TCSANOW, &tio) == 0 ? fd : -1;
}

// Reads the reply to `request` by the length the driver expects: 500 ms for
// it to start, 500 ms between its pieces (USB adapters deliver replies in
// pieces). Bytes that cannot start it, such as a late answer to an earlier
// frame, are dropped. Returns the reply's length, 0 when none came whole
// enough to hand over.
int readReply(int fd, const QByteArray &request, int expected, bool remote, QByteArray &reply)
{
    const unsigned char *sent = reinterpret_cast<const unsigned char *>(request.constData());
    const rvreply::Expectation e = remote
                                       ? rvreply::expectRemoteReply(sent, request.size(), expected)
                                       : rvreply::expectReply(sent, request.size(), expected);
    reply.clear();
    char buf[256];
    pollfd p = {fd, POLLIN, 0};
    for (;;) {
        const rvreply::Step step = rvreply::readReply(
            e, reinterpret_cast<const unsigned char *>(reply.constData()), reply.size(), false);
        if (step.verdict == rvreply::Skip) {
            reply.remove(0, step.bytes);
            continue;
        }
        if (step.verdict == rvreply::Frame)
            return step.bytes;
        const ssize_t n = poll(&p, 1, 500) > 0 ? read(fd, buf, sizeof buf) : 0;
        if (n <= 0)
            return reply.size();  // silence: ends a reply of any length; else it was cut short

        reply.append(buf, int(n));
    }
}

void onOnceRead(int, int, int, int) {}  // no one-off reads are queued here

}  // namespace

int main(int argc, char **argv)
{
    const bool remote = argc > 1 && std::strcmp(argv[1], "--remote-link") == 0;
    if (remote) {
        --argc;
        ++argv;
    }
    if (argc < 2)
        return std::fprintf(stderr, "usage: %s [--remote-link] DEVICE [station] [baud] [library]\n",
                            argv[0]),
               2;
    const int station = argc > 2 ? std::atoi(argv[2]) : 1;
    const int baud = argc > 3 ? std::atoi(argv[3]) : 19200;
    const char *path = argc > 4 ? argv[4] : "libQuorvel_RV_Series.so.1";

    void *lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!lib)
        return std::fprintf(stderr, "minimal_runtime: %s\n", dlerror()), 2;
    Api api;
    if (!find(lib, "SetComInfo", api.SetComInfo) ||
        !find(lib, "RegistCallBackFuncIntf", api.RegistCallBackFuncIntf) ||
        !find(lib, "FlashLocalRegister", api.FlashLocalRegister) ||
        !find(lib, "ReCreatReadVarList", api.ReCreatReadVarList) ||
        !find(lib, "ComCommunication", api.ComCommunication) ||
        !find(lib, "DataCom", api.DataCom) || !find(lib, "GetRegisterData", api.GetRegisterData))
        return 2;
    const int fd = openPort(argv[1], baud);
    if (fd < 0)
        return std::perror(argv[1]), 2;

    // Set-up, before the communication loop starts. The record must outlive
    // the driver's use of it.
    static ComInfo info;
    info.blockUnits = 64;
    info.defaultStation = station;
    info.retryLimit = 2;
    info.writeMode = 2;
    info.remoteLink = remote ? 1 : 0;
    api.SetComInfo(&info);
    api.RegistCallBackFuncIntf(onOnceRead, 0);
    api.FlashLocalRegister(nullptr, nullptr, nullptr);

    VarInfo d0;  // D0..D9: area type 14, ten registers
    d0.areaType = 14;
    d0.station = static_cast<unsigned char>(station);
    d0.areaName = "D";
    d0.addressText = "0";
    d0.count = 10;
    QList<VarInfo> vars;
    vars.append(d0);
    api.ReCreatReadVarList(&vars);

    // The communication loop: one frame out, its reply (or nothing) back.
    QByteArray reply;
    time_t shown = 0;
    for (;;) {
        Protocol *frame = api.ComCommunication();
        if (!frame) {
            usleep(10000);
            continue;
        }
        // Silence between frames (3.5 characters; 2 ms covers 19200 baud and
        // above), then stale bytes out, so they are not taken for the reply.
        usleep(baud < 19200 ? 38500000 / baud : 2000);
        tcflush(fd, TCIFLUSH);
        const QByteArray request = frame->frame.left(frame->sendLength);
        if (write(fd, request.constData(), request.size()) != request.size())
            return 1;
        tcdrain(fd);
        const int got =
            frame->replyLength == 0 ? 0 : readReply(fd, request, frame->replyLength, remote, reply);
        const RW_VAR *done = api.DataCom(&reply, got);
        if (done->result != 0 && done->result != 1 && done->result != 100)
            std::printf("request given up, code %d\n", done->result);
        // Print at most once a second, and only once every variable was read.
        if (info.scanComplete != 1 || time(nullptr) == shown)
            continue;
        shown = time(nullptr);

        QByteArray words;
        api.GetRegisterData(QString(), 14, "0", station, &words, 10);
        for (int i = 0; i + 1 < words.size(); i += 2)
            std::printf("D%d=%u ", i / 2,
                        unsigned(quint8(words[i])) | unsigned(quint8(words[i + 1])) << 8);
        std::printf("\n");
        std::fflush(stdout);
    }
}
