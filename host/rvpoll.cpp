// rvpoll: polls Quorvel RV controllers through the driver library, loaded
// and driven exactly as the panel runtime does it.
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "driver_api.h"
#include "options.h"
#include "poller.h"
#include "table_view.h"
#include "writer.h"

namespace {

volatile sig_atomic_t g_interrupted = 0;

void onSignal(int) { g_interrupted = 1; }

// The runtime's local memories, handed over with FlashLocalRegister; the
// driver keeps the pointers and never reads them.
unsigned short g_localBits[64], g_localWords[64], g_localRwi[64];

// One-off reads finished: rvpoll queues none, but a runtime always has one.
void onRequestDone(int, int, int, int) {}

int fail(const QString &message)
{
    fprintf(stderr, "rvpoll: %s\n", message.toLocal8Bit().constData());
    return 2;
}

QList<VarInfo> toVarInfo(const QList<VarSpec> &vars, int defaultStation)
{
    QList<VarInfo> list;
    for (int i = 0; i < vars.size(); ++i) {
        VarInfo v;
        v.areaType = static_cast<unsigned char>(vars.at(i).areaType);
        v.station = static_cast<unsigned char>(vars.at(i).station ? vars.at(i).station : defaultStation);
        v.addressText = addressTextOf(vars.at(i).areaType, vars.at(i).address);
        v.areaName = areaNameOf(vars.at(i).areaType);
        v.count = vars.at(i).count;
        list.append(v);
    }
    return list;
}

// Everything the views need, shared by the polling thread's per-scan
// output and the main thread's live repaint.
struct View {
    const PollOptions *o;
    const DriverApi *api;
    const StdinWriter *writer;
    bool live;
    std::mutex mutex;
    long long shownScan = -1;
    long long promptedLines = -1;
    std::chrono::steady_clock::time_point shownAt;
};

void show(View &v, const PollStats &s)
{
    const PollOptions &o = *v.o;
    std::lock_guard<std::mutex> lock(v.mutex);
    const ValueTable values = readValues(*v.api, o.vars, o.station);
    if (o.json) {
        printf("%s\n", renderJson(o.vars, values, s, o.multiStation).toLocal8Bit().constData());
    } else {
        QString text = renderTable(o.vars, values, o.hex, o.multiStation) + statusLine(s) + '\n';
        if (v.live) {
            text = QString("rvpoll %1 station %2 (type D100=0x1234 to write, q to quit)\n\n")
                       .arg(QString::fromStdString(o.link.port))
                       .arg(o.multiStation ? QString("various") : QString::number(o.station)) +
                   text + v.writer->lastMessage() + '\n';
            // The table is repainted from the top, each line cleared as it is
            // rewritten, while the cursor stays on the prompt line below it,
            // where the operator types; a new prompt after each entered line.
            const int rows = text.count('\n');
            text.replace("\n", "\033[K\n");
            const long long lines = v.writer->linesHandled();
            if (lines != v.promptedLines) {
                printf("\033[H%s\033[J\033[%d;1Hwrite> ", text.toLocal8Bit().constData(), rows + 1);
                v.promptedLines = lines;
            } else {
                printf("\0337\033[H%s\0338", text.toLocal8Bit().constData());
            }
        } else {
            printf("scan %lld\n%s\n", s.scans, text.toLocal8Bit().constData());
        }
    }
    fflush(stdout);
    v.shownScan = s.scans;
    v.shownAt = std::chrono::steady_clock::now();
}

// Per-scan output: JSON every scan; plain text at most once a second and
// always for the last scan of --once/--scans.
void onScan(View &v, long long scanLimit, const PollStats &s)
{
    if (v.live)
        return;
    bool due = v.o->json || (scanLimit > 0 && s.scans >= scanLimit);
    if (!due && !v.o->once) {
        std::lock_guard<std::mutex> lock(v.mutex);
        due = v.shownScan < 0 || std::chrono::steady_clock::now() - v.shownAt >= std::chrono::seconds(1);
    }
    if (due)
        show(v, s);
}

}  // namespace

int main(int argc, char **argv)
{
    PollOptions o;
    QString error;
    if (!parseOptions(argc, argv, o, error)) {
        fprintf(stderr, "rvpoll: %s (rvpoll --help for usage)\n", error.toLocal8Bit().constData());
        return 2;
    }
    if (o.help) {
        printf("%s", usageText());
        return 0;
    }

    DriverApi api;
    std::string loadError;
    if (!loadDriver(o.lib.empty() ? kDriverSoname : o.lib, api, loadError))
        return fail(QString::fromStdString(loadError));

    // Set-up in the runtime's order: record, call-back, local memories,
    // then the polled variables.
    static ComInfo info;
    info.blockUnits = o.blockUnits;
    info.defaultStation = o.station;
    info.retryLimit = o.retries;
    info.multiStation = o.multiStation ? 1 : 0;
    info.writeMode = 2;
    api.SetComInfo(&info);
    api.RegistCallBackFuncIntf(onRequestDone, 0);
    api.FlashLocalRegister(g_localBits, g_localWords, g_localRwi);
    QList<VarInfo> varInfo = toVarInfo(o.vars, o.station);
    const int blocks = api.ReCreatReadVarList(&varInfo);
    if (blocks <= 0)
        return fail("the driver made no read requests from these variables (past the end of their areas?)");

    Poller poller(api, o.link, blocks, o.verbose, o.once ? 0 : o.intervalMs);
    std::string linkError;
    if (!poller.openLink(linkError))
        return fail(QString::fromStdString(linkError));

    for (int i = 0; i < o.writes.size(); ++i) {
        QString message;
        if (!queueWrite(api, o.writes.at(i), o.station, message))
            return fail(message);
    }

    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    const long long scanLimit = o.once ? 1 : o.scans;
    View view;
    view.o = &o;
    view.api = &api;
    view.live = !o.json && !o.once && isatty(1);
    StdinWriter writer(api, o.station, o.multiStation, !view.live && !o.json);
    view.writer = &writer;
    poller.setScanLimit(scanLimit);
    poller.setScanHandler([&view, scanLimit](const PollStats &s) { onScan(view, scanLimit, s); });
    if (!o.once)
        writer.start();
    if (view.live)
        printf("\033[2J");
    poller.start();

    const auto started = std::chrono::steady_clock::now();
    long long seen = 0;
    for (;;) {
        seen = poller.waitScan(seen, view.live ? 200 : 100);
        const bool limitReached = scanLimit > 0 && seen >= scanLimit;
        const bool timeUp = o.durationS > 0 && std::chrono::duration<double>(
                                                   std::chrono::steady_clock::now() - started)
                                                       .count() >= o.durationS;
        if (view.live)
            show(view, poller.stats());
        if (limitReached || timeUp || g_interrupted || writer.quitRequested())
            break;
    }
    writer.stop();
    poller.stop();

    const PollStats s = poller.stats();
    // Plain output ends with the values as they were last read.
    if (!view.live && !o.json && s.scans > 0 && s.scans != view.shownScan)
        show(view, s);
    fprintf(stderr, "%s\n", summaryLine(s).toLocal8Bit().constData());
    if (!poller.everAnswered()) {
        fprintf(stderr, "rvpoll: the controller never answered on %s\n", o.link.port.c_str());
        return 1;
    }
    if (scanLimit > 0 && poller.lastScanFailed())
        return 1;
    return 0;
}
