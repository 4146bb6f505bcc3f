#include "monitor.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "link/bus_exchange.h"
#include "link/capture_file.h"
#include "link/line_tap.h"
#include "link/port_factory.h"
#include "monitor_decode.h"
#include "monitor_tally.h"

namespace {

// How long a read waits before the finder is told of the silence, and how
// often the live screen is repainted.
const int kReadWaitMs = 50;
const long long kRepaintUs = 250000;

class Monitor {
public:
    explicit Monitor(const PollOptions &o)
        : o_(o),
          finder_(o.link.finderOptions()),
          pairer_(o.link.finderOptions().replyTimeoutUs),
          live_(!o.json && !o.csv && !o.verbose && o.replay.empty() && isatty(1))
    {}

    bool openCapture(std::string &error)
    {
        return o_.capture.empty() || capture_.open(o_.capture, error);
    }
    void heard(const std::uint8_t *data, std::size_t n, long long atUs)
    {
        finder_.feed(data, n, atUs);
        drain();
    }
    void silent(long long nowUs)
    {
        finder_.idle(nowUs);
        drain();
    }
    void finish()
    {
        finder_.finish();
        drain();
        pairer_.finish();
        drain();
    }
    void repaint(const std::string &port, long long startUs, long long nowUs);
    int report(bool interrupted);

private:
    void drain();
    void show(const rvlink::BusExchange &x, const HeardExchange &h);

    const PollOptions &o_;
    rvlink::FrameFinder finder_;
    rvlink::ExchangePairer pairer_;
    rvlink::CaptureWriter capture_;
    MonitorTally tally_;
    bool live_;
    bool csvHeaderShown_ = false;
    bool captureFailed_ = false;
    QString last_;
    long long paintedUs_ = 0;
};

void Monitor::drain()
{
    for (const rvlink::BusFrame &f : finder_.take()) {
        if (capture_.isOpen() && !capture_.write(f) && !captureFailed_) {
            captureFailed_ = true;
            fprintf(stderr, "rvpoll: cannot write the capture %s\n", o_.capture.c_str());
        }
        pairer_.add(f);
    }
    for (const rvlink::BusExchange &x : pairer_.take()) {
        const HeardExchange h = decodeExchange(x, o_.link.remoteFrames);
        tally_.note(x, h);
        show(x, h);
    }
}

void Monitor::show(const rvlink::BusExchange &x, const HeardExchange &h)
{
    last_ = monitorLine(h);
    if (live_)
        return;
    if (o_.json) {
        printf("%s\n", monitorJson(h).toLocal8Bit().constData());
    } else if (o_.csv) {
        if (!csvHeaderShown_)
            printf("%s\n", monitorCsvHeader().toLocal8Bit().constData());
        csvHeaderShown_ = true;
        printf("%s\n", monitorCsv(h).toLocal8Bit().constData());
    } else {
        printf("%s\n", last_.toLocal8Bit().constData());
        // -v: the frames themselves, the request as sent, what answered as heard.
        for (int i = 0; o_.verbose && i < 2; ++i) {
            const rvlink::Bytes &b = i == 0 ? x.request : x.reply;
            if (!b.empty() && h.station >= 0)
                printf("    %s\n", rvlink::bracketed(b, i ? '<' : '[', i ? '>' : ']').c_str());
        }
    }
    fflush(stdout);
}

void Monitor::repaint(const std::string &port, long long startUs, long long nowUs)
{
    if (!live_ || nowUs - paintedUs_ < kRepaintUs)
        return;
    paintedUs_ = nowUs;
    winsize w = {};
    const bool sized = ioctl(1, TIOCGWINSZ, &w) == 0 && w.ws_row > 0 && w.ws_col > 0;
    const int rows = sized ? w.ws_row : 40, width = sized ? w.ws_col : 80;
    char format[32];
    QString text = QString("rvpoll --monitor %1 (%2), listening %3 s, Ctrl-C to stop\n")
                       .arg(QString::fromStdString(port))
                       .arg(rvlink::formatName(o_.link.format, format))
                       .arg((nowUs - startUs) / 1e6, 0, 'f', 0) +
                   "last: " + last_.left(width - 7) + "\n" +
                   tally_.screen(nowUs, std::max(3, rows - 16), width);
    text.replace("\n", "\033[K\n");
    printf("\033[H%s\033[J", text.toLocal8Bit().constData());
    fflush(stdout);
}

int Monitor::report(bool interrupted)
{
    if (live_)
        printf("\n");
    if (o_.json)
        printf("%s\n", tally_.json().toLocal8Bit().constData());
    else if (!o_.quiet)
        fprintf(stderr, "%s", tally_.summary().toLocal8Bit().constData());
    fflush(stdout);
    capture_.close();
    if (captureFailed_)
        return 2;
    if (tally_.exchanges() == 0 && !interrupted)
        fprintf(stderr, "rvpoll: no request was heard: check baud and parity, and the wiring\n");
    return tally_.exchanges() > 0 ? 0 : 1;
}

int fail(const std::string &message)
{
    fprintf(stderr, "rvpoll: %s\n", message.c_str());
    return 2;
}

// A capture as it was heard: each frame's bytes at its first byte's time,
// its last byte at its own, so the finder sees what it saw live.
int replay(const PollOptions &o, Monitor &m)
{
    std::vector<rvlink::CapturedFrame> frames;
    std::string error;
    if (!rvlink::readCapture(o.replay, frames, error))
        return fail(error);
    for (const rvlink::CapturedFrame &f : frames) {
        if (f.bytes.empty())
            continue;
        m.heard(f.bytes.data(), f.bytes.size() - 1, f.firstUs);
        m.heard(&f.bytes.back(), 1, f.lastUs);
    }
    m.finish();
    return m.report(false);
}

}  // namespace

int runMonitor(const PollOptions &o, const std::atomic<bool> &stop, const std::atomic<int> &signal)
{
    Monitor m(o);
    std::string error;
    if (!m.openCapture(error))
        return fail(error);
    if (!o.replay.empty())
        return replay(o, m);

    rvlink::PortSettings settings = o.link.portSettings();
    settings.listenOnly = true;
    std::unique_ptr<rvlink::Port> port = rvlink::makePort(settings, error);
    if (!port || !port->open(error))
        return fail(error);
    // Bytes that waited before listening began have no time of their own.
    port->discardInput();
    if (isatty(1) && !o.json && !o.csv && !o.verbose)
        printf("\033[2J");
    const long long startUs = rvlink::busClockUs();
    const long long endUs = o.durationS > 0 ? startUs + (long long)(o.durationS * 1e6) : -1;
    std::uint8_t buf[512];
    bool lost = false;
    while (!stop && (endUs < 0 || rvlink::busClockUs() < endUs)) {
        if (lost) {
            // An unplugged adapter comes back: try again once a second.
            std::this_thread::sleep_for(std::chrono::seconds(1));
            lost = !port->open(error);
            if (!lost && port->discardInput() >= 0)
                fprintf(stderr, "rvpoll: listening on %s again\n", o.link.port.c_str());
            continue;
        }
        const int n = port->read(buf, sizeof buf, kReadWaitMs);
        const long long now = rvlink::busClockUs();
        if (n > 0)
            m.heard(buf, std::size_t(n), now);
        else if (n == 0)
            m.silent(now);
        if (n < 0) {
            fprintf(stderr, "rvpoll: lost %s, reopening\n", o.link.port.c_str());
            port->close();
            lost = true;
        }
        m.repaint(o.link.port, startUs, now);
    }
    port->close();
    m.finish();
    const int status = m.report(stop);
    return stop && signal > 0 ? 128 + signal : status;
}
