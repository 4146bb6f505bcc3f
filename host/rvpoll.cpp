// rvpoll: polls Quorvel RV controllers through the driver library, loaded
// and driven exactly as the panel runtime does it.
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "driver_api.h"
#include "link/capture_tap.h"
#include "monitor.h"
#include "options.h"
#include "poller.h"
#include "read_state.h"
#include "table_view.h"
#include "writer.h"

namespace {

// Set by SIGINT or SIGTERM: the run ends with what it has (a lock-free
// atomic, so the handler may set it).
std::atomic<bool> g_interrupted{false};
std::atomic<int> g_signal{0};

void onSignal(int signo)
{
    g_signal = signo;
    g_interrupted = true;
}

void catchStopSignals()
{
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

// Times a write dropped by a give-up is queued again.
const int kRequeueLimit = 5;
// Failed reopens (about 20 s with the back-off) before a run that counts
// scans stops waiting for a lost link.
const int kReopenAttempts = 8;

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
        v.station =
            static_cast<unsigned char>(vars.at(i).station ? vars.at(i).station : defaultStation);
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
    const Poller *poller;
    WriteTracker *writes;
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
    const ReadState state(v.poller->blocks(), o.station, o.multiStation, v.writes->unsettled());
    const ValueTable values = readValues(*v.api, o.vars, o.station, state);
    const QStringList problems = state.problems(o.vars, s.scans > 0);
    const WriteCounts c = v.writes->counts();
    const QString writes =
        c.written + c.failed + c.dropped + c.refused + c.pending == 0
            ? QString()
            : QString("%1 written, %2 failed, %3 dropped, %4 refused, %5 pending")
                  .arg(c.written)
                  .arg(c.failed)
                  .arg(c.dropped)
                  .arg(c.refused)
                  .arg(c.pending);
    const QStringList events = v.live ? QStringList() : v.writes->takeEvents();
    if (o.csv) {
        // The rows stay machine-readable; what went wrong goes to stderr.
        printf("%s", renderCsv(o.vars, values, s.scans, o.multiStation, v.shownScan < 0)
                         .toLocal8Bit()
                         .constData());
        for (int i = 0; !o.quiet && i < events.size(); ++i)
            fprintf(stderr, "rvpoll: %s\n", events.at(i).toLocal8Bit().constData());
    } else if (o.json) {
        const LineStats line = v.poller->lineStats();
        printf("%s\n", renderJson(o.vars, values, s, o.multiStation, problems,
                                  writes.isEmpty() ? nullptr : &c, events,
                                  line.json() + line.networkField())
                           .toLocal8Bit()
                           .constData());
    } else {
        QString text = renderTable(o.vars, values, o.multiStation) + statusLine(s) + '\n';
        if (!writes.isEmpty())
            text += "writes: " + writes + '\n';
        for (int i = 0; i < problems.size(); ++i)
            text += "not read: " + problems.at(i) + '\n';
        if (v.live) {
            text = QString("rvpoll %1 station %2 (type D100=0x1234 to write, q to quit)\n\n")
                       .arg(QString::fromStdString(o.link.port))
                       .arg(o.multiStation ? QString("various") : QString::number(o.station)) +
                   text + v.writer->lastMessage() + '\n' + v.writes->lastEvent() + '\n';
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
            for (int i = 0; !o.quiet && i < events.size(); ++i)
                printf("rvpoll: %s\n", events.at(i).toLocal8Bit().constData());
            printf("scan %lld\n%s\n", s.scans, text.toLocal8Bit().constData());
        }
    }
    fflush(stdout);
    v.shownScan = s.scans;
    v.shownAt = std::chrono::steady_clock::now();
}

// Per-scan output: JSON, CSV and counted scans every scan; open-ended plain
// text at most once a second.
void onScan(View &v, long long scanLimit, const PollStats &s)
{
    if (v.live)
        return;
    bool due = v.o->json || v.o->csv || scanLimit > 0;
    if (!due && !v.o->once) {
        std::lock_guard<std::mutex> lock(v.mutex);
        due = v.shownScan < 0 ||
              std::chrono::steady_clock::now() - v.shownAt >= std::chrono::seconds(1);
    }
    if (due)
        show(v, s);
}

// rvpoll --scan: exit 0 when a station answered, 1 when none did.
int scan(const PollOptions &o)
{
    catchStopSignals();
    std::string error;
    const ScanResult r =
        scanLine(o.link, o.scanSettings, isatty(2) ? stderr : nullptr, g_interrupted, error);
    if (r.combinations.isEmpty() && !error.empty())
        return fail(QString::fromStdString(error));
    printf("%s", renderScan(r, o.link.port, o.json).toLocal8Bit().constData());
    if (!error.empty())
        fprintf(stderr, "rvpoll: %s\n", error.c_str());
    return r.finds.isEmpty() ? 1 : 0;
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
    if (o.help || o.version) {
        printf("%s", o.help ? usageText() : versionText());
        return 0;
    }

    // Every frame both ways into a capture: polling and the scan alike.
    std::unique_ptr<rvlink::CaptureTap> capture;
    if (!o.capture.empty() && !o.monitor) {
        capture.reset(new rvlink::CaptureTap(o.link.finderOptions()));
        std::string captureError;
        if (!capture->open(o.capture, captureError))
            return fail(QString::fromStdString(captureError));
        o.link.tap = capture.get();
    }
    if (o.monitor) {
        catchStopSignals();
        return runMonitor(o, g_interrupted, g_signal);
    }

    // The scan needs no driver: it asks every station the same one frame.
    if (o.scan)
        return scan(o);

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
    info.remoteLink = o.remoteLink ? 1 : 0;
    api.SetComInfo(&info);
    api.RegistCallBackFuncIntf(onRequestDone, 0);
    api.FlashLocalRegister(g_localBits, g_localWords, g_localRwi);
    QList<VarInfo> varInfo = toVarInfo(o.vars, o.station);
    // The driver gives the requests it builds its own link number; for
    // another link, the requests are built under that number.
    const int ownLink = info.localLinkNo;
    info.localLinkNo = o.linkNo;
    // A run of writes alone polls nothing: no read list to make.
    const bool writeOnly = o.vars.isEmpty();
    const int blocks = writeOnly ? 0 : api.ReCreatReadVarList(&varInfo);
    info.localLinkNo = ownLink;
    if (blocks <= 0 && !writeOnly)
        return fail(
            "the driver made no read requests from these variables (past the end of their areas?)");

    if (o.verbose && blocks > 0)
        fprintf(stderr,
                "rvpoll: %d requests a pass over the read list; each word block comes twice in "
                "it, as the driver keeps the blocks of its grouping pass and of its final pass\n",
                blocks);
    WriteTracker writes(api, o.station, o.multiStation, o.blockUnits,
                        o.requeue ? kRequeueLimit : 0);
    writes.setLink(&info, o.linkNo);
    Poller poller(api, writes, &info, o.link, blocks, o.verbose, o.once ? 0 : o.intervalMs);
    std::string linkError;
    if (!poller.openLink(linkError))
        return fail(QString::fromStdString(linkError));

    for (int i = 0; i < o.writes.size(); ++i) {
        QString message;
        if (!writes.queue(o.writes.at(i), message))
            return fail(message);
    }
    if (o.station == 0 && !o.multiStation && !writeOnly)
        fprintf(stderr,
                "rvpoll: station 0 is the broadcast address: every station takes its writes, "
                "nothing can be read from it\n");

    catchStopSignals();

    const long long scanLimit = o.once ? 1 : o.scans;
    View view;
    view.o = &o;
    view.api = &api;
    view.poller = &poller;
    view.writes = &writes;
    view.live = !o.json && !o.csv && !o.once && isatty(1);
    poller.setLinkMessages(!view.live);
    // Standard input is a command only when someone types it: a file or a
    // pipe there is not an order to write to a controller.
    const bool takeWrites = !o.once && (isatty(0) || o.writesFromStdin);
    StdinWriter writer(writes, o.multiStation, o.station, o.format,
                       !view.live && !o.json && !o.csv && !o.quiet);
    view.writer = &writer;
    poller.setScanLimit(scanLimit);
    poller.setScanHandler([&view, scanLimit](const PollStats &s) { onScan(view, scanLimit, s); });
    if (takeWrites)
        writer.start();
    if (view.live)
        printf("\033[2J");
    poller.start();

    const auto started = std::chrono::steady_clock::now();
    long long seen = 0;
    for (;;) {
        seen = poller.waitScan(seen, view.live ? 200 : 100);
        const PollStats now = poller.stats();
        const bool limitReached = scanLimit > 0 && seen >= scanLimit && !poller.running();
        // Writes alone end when every one has, unless more may be typed.
        const bool writesDone = writeOnly && !takeWrites && writes.counts().pending == 0;
        // A run that counts scans cannot wait for ever for a lost link.
        const bool linkGone = scanLimit > 0 && !now.linkUp && now.reopenAttempts >= kReopenAttempts;
        const bool timeUp =
            o.durationS > 0 &&
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count() >=
                o.durationS;
        if (view.live)
            show(view, poller.stats());
        if (limitReached || writesDone || linkGone || timeUp || g_interrupted ||
            writer.quitRequested())
            break;
    }
    writer.stop();
    poller.stop();

    const PollStats s = poller.stats();
    // Plain output ends with the values as they were last read, and with
    // the link's state when it is down at the end; a run stopped by a
    // signal shows what it had read, in the output it was asked for.
    const bool interrupted = g_interrupted && !writer.quitRequested();
    if (!view.live && !writeOnly &&
        ((!o.json && !o.csv && s.scans > 0 && (s.scans != view.shownScan || !s.linkUp)) ||
         (interrupted && s.scans != view.shownScan)))
        show(view, s);
    if (view.live)
        printf("\n");  // the summary goes below the prompt line, not onto it
    fflush(stdout);
    const QStringList events = writes.takeEvents();
    for (int i = 0; !view.live && !o.quiet && i < events.size(); ++i)
        fprintf(o.json || o.csv ? stderr : stdout, "rvpoll: %s\n",
                events.at(i).toLocal8Bit().constData());
    fflush(stdout);
    const LineStats line = poller.lineStats();
    if (!o.quiet) {
        fprintf(stderr, "%s\n%s", summaryLine(s).toLocal8Bit().constData(),
                line.summary().toLocal8Bit().constData());
        const QStringList hints = line.hints();
        for (int i = 0; i < hints.size(); ++i)
            fprintf(stderr, "rvpoll: hint: %s\n", hints.at(i).toLocal8Bit().constData());
    }

    // Exit status 1 for anything the operator asked for and did not get.
    int status = 0;
    // Broadcasts draw no answer: only a station asked may fail to answer.
    const bool asked = s.framesSent > s.broadcasts;
    if (asked && !poller.everAnswered()) {
        fprintf(stderr, "rvpoll: %s (on %s)\n", line.neverAnswered().toLocal8Bit().constData(),
                o.link.port.c_str());
        status = 1;
    }
    if (!s.linkUp) {
        fprintf(stderr, "rvpoll: link to %s lost and not back after %lld reopen attempts\n",
                o.link.port.c_str(), s.reopenAttempts);
        status = 1;
    }
    if (scanLimit > 0 && poller.lastScanFailed())
        status = 1;
    const bool limited = scanLimit > 0 || o.durationS > 0 || interrupted;
    const QStringList never =
        ReadState(poller.blocks(), o.station, o.multiStation).neverRead(o.vars);
    if (limited && !never.isEmpty()) {
        fprintf(stderr, "rvpoll: never read: %s\n", never.join(" ").toLocal8Bit().constData());
        status = 1;
    }
    QStringList unfinished;
    if (writes.unfinished(unfinished) > 0) {
        for (int i = 0; i < unfinished.size(); ++i)
            fprintf(stderr, "rvpoll: %s\n", unfinished.at(i).toLocal8Bit().constData());
        status = 1;
    }
    // A signal's own status, as a shell reports it, once the run is told.
    if (interrupted && (g_signal == SIGINT || g_signal == SIGTERM))
        status = 128 + g_signal;
    return status;
}
