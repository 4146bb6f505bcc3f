// The smallest runtime that drives the Quorvel RV driver: it loads the
// library by its soname, hands it a ComInfo record and one polled variable
// (D0..D9), runs the communication loop on a serial port through the link
// (quorvel_rv/link: the port set up and held, each reply read by the length
// the driver expects, a reply that could be a stray copy confirmed before
// the driver sees it) and prints the ten registers after every complete
// scan. The port may as well be a gateway on the network: the driver is
// indifferent to what carries its frames. Usage:
//   minimal_runtime [--remote-link] /dev/ttyUSB0 [station] [baud] [library]
//   minimal_runtime socket://HOST:PORT | rfc2217://HOST:PORT | modbus-tcp://HOST[:PORT] ...
// --remote-link sends request descriptions for a remote link (ComInfo
// remoteLink) instead of controller frames.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <quorvel_rv/link/rv_link.h>
#include <quorvel_rv/quorvel_rv_series.h>

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
        return std::fprintf(stderr,
                            "usage: %s [--remote-link] DEVICE|ADDRESS [station] [baud] [library]\n"
                            "ADDRESS: socket://HOST:PORT, rfc2217://HOST:PORT or "
                            "modbus-tcp://HOST[:PORT]\n",
                            argv[0]),
               2;
    const int station = argc > 2 ? std::atoi(argv[2]) : 1;
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

    // 8 data bits, even parity, one stop bit (8E1), the usual Modbus RTU
    // setting (set on the far port through rfc2217://); a speed no serial
    // driver offers is refused.
    rvlink::PortSettings port;
    port.path = argv[1];
    port.format.baud = argc > 3 ? std::atoi(argv[3]) : 19200;
    std::string error;
    const std::unique_ptr<rvlink::Port> serial = rvlink::makePort(port, error);
    if (!serial || !serial->open(error))
        return std::fprintf(stderr, "minimal_runtime: %s\n", error.c_str()), 2;
    rvlink::LineOptions options;  // 500 ms for a reply to start and between its pieces
    options.format = port.format;
    options.remoteFrames = remote;
    rvlink::Line line(*serial, options);

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
    time_t shown = 0;
    for (;;) {
        Protocol *frame = api.ComCommunication();
        if (!frame) {
            usleep(10000);
            continue;
        }
        const rvlink::Exchange x = line.exchange(
            rvlink::bytesOf(frame->frame.constData(), size_t(std::max(0, frame->sendLength))),
            frame->replyLength);
        if (x.outcome == rvlink::Exchange::Lost)
            return std::fprintf(stderr, "minimal_runtime: %s lost\n", argv[1]), 1;
        // A reply not confirmed counts as none: the driver retries the frame.
        QByteArray reply;
        if (x.outcome != rvlink::Exchange::Unconfirmed)
            reply = QByteArray(reinterpret_cast<const char *>(x.reply.data()), int(x.reply.size()));
        const RW_VAR *done = api.DataCom(&reply, reply.size());
        if (done->result == 1 || done->result == 100)
            info.retryCount = 0;  // each request gets retryLimit retries of its own
        else if (done->result != 0)
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
