#include "options.h"

#include <QFile>
#include <QStringList>

#include <algorithm>

#include "link/capture_file.h"
#include "link/line_address.h"
#include "link/serial_port.h"
#include "localarea/areas.h"
#include "common/tool_cli.h"

namespace {

bool toInt(const std::string &text, int low, int high, int &out)
{
    bool ok = false;
    out = QString::fromStdString(text).toInt(&ok, 10);
    return ok && out >= low && out <= high;
}

bool parseParities(const std::string &text, std::vector<char> &out)
{
    out.clear();
    const QStringList items = QString::fromStdString(text).split(',');
    for (int i = 0; i < items.size(); ++i) {
        const char p = parityByName(items.at(i).trimmed().toStdString());
        if (!p)
            return false;
        out.push_back(p);
    }
    return true;
}

bool standardBaud(int baud)
{
    speed_t speed;
    return rvlink::termiosSpeed(baud, speed);
}

// A port given without --port: a path, a terminal's name or a network address.
bool looksLikePort(const QString &arg)
{
    return arg.startsWith('/') || arg.startsWith("tty") || arg.startsWith("./") ||
           rvlink::isNetworkAddress(arg.toStdString());
}

}  // namespace

QString stationPrefixRefusal(const VarSpec &v, bool multiStation, int station)
{
    // One station without --multi-station: a prefix would be silently
    // replaced by it, so it is refused with the way to get it.
    if (multiStation || v.station == 0)
        return QString();
    return QString("%1:%2 names station %1: without --multi-station every element is station "
                   "%3's (-a); use -a %1, or --multi-station")
        .arg(v.station)
        .arg(elementName(v.areaType, v.address))
        .arg(station);
}

const char *versionText()
{
    return "rvpoll (Quorvel RV tools) " RV_VERSION "\n";
}

const char *usageText()
{
    return "Usage: rvpoll [OPTION]... [DEVICE] VARIABLE...\n"
           "Poll Quorvel RV controllers through the driver library, loaded and driven as the\n"
           "panel runtime does it, and show their values.\n"
           "\n"
           "VARIABLE is a range of elements: D0-D19 M0-M63 X0-X17 (X and Y octal) TD5,\n"
           "with a format D100-D101:float, and with a station 1:D0-D9 (--multi-station).\n"
           "DEVICE (or --port) is a serial device: /dev/ttyUSB0, ttyS0, a pseudo-terminal;\n"
           "or a gateway: socket://HOST:PORT (a serial server passing RTU frames as they\n"
           "are), rfc2217://HOST:PORT (the same, the far port set to -b, -P, -d and -s) or\n"
           "modbus-tcp://HOST[:PORT] (a Modbus TCP gateway, port 502 by default).\n"
           "\n"
           "Line:\n"
           "      --port=DEV        serial device, held by rvpoll alone while it runs (a\n"
           "                        second program on it is refused with its holder named),\n"
           "                        or a gateway's address as DEVICE above\n"
           "  -b, --baud=N          baud rate (default 19200)\n"
           "  -P, --parity=P        none|even|odd or N|E|O (default even)\n"
           "  -d, --data=8          data bits: Modbus RTU sends 8\n"
           "  -s, --stop=N          stop bits, 1 or 2 (default 1)\n"
           "      --timeout-ms=N    wait this long for a reply to start (default 500)\n"
           "      --byte-timeout-ms=N  wait this long between pieces of one reply (default\n"
           "                        500: USB adapters deliver replies in pieces)\n"
           "      --late-window-ms=N  the latest a reply or a copy of one may come and still\n"
           "                        be told apart (default 4 x --timeout-ms): after a failed\n"
           "                        exchange nothing is sent until it has passed, and a\n"
           "                        reply identical to one of it taken for another frame is\n"
           "                        confirmed by another read first; widened to twice any\n"
           "                        lateness the line shows\n"
           "      --gap-ms=N        silence kept between frames (default 3.5 characters,\n"
           "                        1.75 ms above 19200 baud)\n"
           "      --echo            discard the echo of a 2-wire adapter\n"
           "      --rs485           switch the port to the kernel's RS-485 mode\n"
           "      --rts-delay-before=MS, --rts-delay-after=MS\n"
           "                        RTS delays around sending in RS-485 mode\n"
           "\n"
           "Driver:\n"
           "  -a, --station=N       station (default 1); 0 is the broadcast address, which\n"
           "                        takes writes but cannot be read\n"
           "      --retries=N       retries of each request before it is given up (default 2)\n"
           "      --block=N         most units per request (default 64)\n"
           "      --multi-station   every variable names its station (1:D0-D9 2:D0-D9)\n"
           "      --remote-link     send request descriptions for a remote link (ComInfo\n"
           "                        remoteLink) instead of controller frames\n"
           "      --link-no=N       the requests' link number (default 0, the driver's own:\n"
           "                        replies are stored); on another link the driver checks\n"
           "                        replies but stores nothing, so no value is shown\n"
           "      --lib=PATH        driver library instead of libQuorvel_RV_Series.so.1, built\n"
           "                        against the same Qt (4 or 5) as rvpoll: it refuses the other\n"
           "\n"
           "What to poll and write:\n"
           "      --vars=FILE       variables from a file ('#' comments)\n"
           "      --write=E=V       write before polling (repeatable): D100=0x1234, D10=1,2,3,\n"
           "                        M5=1, D100=-1, D200=3.5:float, D300=abc:string\n"
           "      --writes-from-stdin  also take writes from standard input when it is no\n"
           "                        terminal (lines typed on a terminal are always taken)\n"
           "      --requeue         queue a write a give-up dropped again, up to 5 times, once\n"
           "                        its station answers (the default)\n"
           "      --no-requeue      leave a write dropped by a give-up dropped\n"
           "\n"
           "Commissioning scan (--scan): which stations answer, at which settings:\n"
           "      --scan            ask every station at every baud rate and parity for one\n"
           "                        register (D0); list what answered and how to poll it\n"
           "      --scan-bauds=LIST  default 9600,19200,38400,57600,115200\n"
           "      --scan-parities=LIST  default even,none,odd (1 stop bit with a parity, 2\n"
           "                        without)\n"
           "      --scan-stop=N     stop bits for every parity\n"
           "      --scan-stations=LIST  default 1-247; ranges and lists: 1-10,17\n"
           "      --scan-all        go on after a setting that answered (by default the scan\n"
           "                        finishes that setting's stations and stops)\n"
           "                        The timeout fits each baud rate unless --timeout-ms says.\n"
           "                        Progress goes to standard error when it is a terminal;\n"
           "                        Ctrl-C stops and lists what was found.\n"
           "\n"
           "Listening (--monitor): what a panel and its controllers say on a line:\n"
           "      --monitor         listen to DEVICE and never send: each exchange found by\n"
           "                        its structure and CRC, as a line in element names (or\n"
           "                        --json, --csv), a live view on a terminal, a summary at\n"
           "                        the end; -b, -P, -s as the line's, --timeout-ms and\n"
           "                        --byte-timeout-ms as the panel's\n"
           "      --replay=FILE     with --monitor: decode a capture as if it were heard live\n"
           "      --capture=FILE    every frame both ways with its time into a pcapng file,\n"
           "                        noise and bad CRCs marked (monitoring, polling, --scan)\n"
           "                        Wireshark decodes it, or: tshark -r FILE\n"
           "                        " RV_TSHARK_OPTIONS "\n"
           "\n"
           "How long:\n"
           "  -1, --once            one full scan, then exit\n"
           "      --scans=N         N scans, then exit (each one shown)\n"
           "      --duration=S      poll for S seconds\n"
           "  -l, --interval-ms=N   pause between scans (default 100)\n"
           "\n"
           "Output (plain text is shown at most once a second unless scans are counted):\n"
           "      --format=F        uint16 (default), int16, hex, uint32, int32, float,\n"
           "                        string; 32-bit ones in word order :abcd (default) or :cdab\n"
           "      --hex             same as --format=hex\n"
           "      --json            JSON Lines: one JSON object per scan, each on a line of its\n"
           "                        own (not one JSON document); unknown values are null\n"
           "      --csv             one CSV row per scan after a header line\n"
           "  -v, --verbose         trace frames: [01][03].. sent, <01><03>.. received\n"
           "  -q, --quiet           no summary and no write messages on the way\n"
           "  -h, --help            display this help and exit\n"
           "  -V, --version         output version information and exit\n"
           "\n"
           "Values never read, or whose last read failed, show as -- (? for bits).\n"
           "Option values follow an equals sign or a blank (--baud=9600, --baud 9600).\n"
           "\n"
           "Exit status: 0 ok (with --scan: a station answered); 1 nothing answered,\n"
           "the controller never answered, a requested value was never\n"
           "read, a write did not land, the link was lost for good, or --once/--scans ended\n"
           "on a failed scan; 2 bad command line, port or driver.\n";
}

bool parseOptions(int argc, char **argv, PollOptions &opts, QString &error)
{
    CLI::App app("rvpoll");
    setUpToolCli(app, {opts.help, opts.version, opts.quiet, opts.verbose});

    std::string linkNo, port, baud, parity, data, stop, timeout, byteTimeout, window, gap,
        rtsBefore, rtsAfter, station, retries, block, lib, varsFile, scans, duration, interval,
        format;
    std::vector<std::string> writes;
    bool hex = false, noRequeue = false;
    app.add_flag("-1,--once", opts.once);
    app.add_flag("--json", opts.json);
    app.add_flag("--csv", opts.csv);
    app.add_flag("--hex", hex);
    app.add_flag("--echo", opts.link.discardEcho);
    app.add_flag("--rs485", opts.link.rs485);
    app.add_flag("--multi-station", opts.multiStation);
    app.add_flag("--remote-link", opts.remoteLink);
    app.add_flag("--scan", opts.scan);
    app.add_flag("--scan-all", opts.scanSettings.all);
    app.add_flag("--monitor", opts.monitor);
    app.add_option("--capture", opts.capture);
    app.add_option("--replay", opts.replay);
    std::string scanBauds, scanParities, scanStop, scanStations;
    app.add_option("--scan-bauds", scanBauds);
    app.add_option("--scan-parities", scanParities);
    app.add_option("--scan-stop", scanStop);
    app.add_option("--scan-stations", scanStations);
    app.add_flag("--writes-from-stdin", opts.writesFromStdin);
    bool requeue = false;
    app.add_flag("--requeue", requeue);
    app.add_flag("--no-requeue", noRequeue);
    app.add_option("--port", port);
    app.add_option("-b,--baud", baud);
    app.add_option("-P,--parity", parity);
    app.add_option("-d,--data", data);
    app.add_option("-s,--stop", stop);
    app.add_option("--timeout-ms", timeout);
    app.add_option("--byte-timeout-ms", byteTimeout);
    app.add_option("--late-window-ms", window);
    app.add_option("--gap-ms", gap);
    app.add_option("--rts-delay-before", rtsBefore);
    app.add_option("--rts-delay-after", rtsAfter);
    app.add_option("-a,--station", station);
    app.add_option("--retries", retries);
    app.add_option("--block", block);
    app.add_option("--lib", lib);
    app.add_option("--link-no", linkNo);
    app.add_option("--vars", varsFile);
    app.add_option("--write", writes)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--scans", scans);
    app.add_option("--duration", duration);
    app.add_option("-l,--interval-ms", interval);
    app.add_option("--format", format);
    std::string why;
    if (!parseToolCli(app, argc, argv, why)) {
        error = QString::fromStdString(why);
        return false;
    }
    if (opts.help || opts.version)
        return true;
    opts.requeue = !noRequeue;
    opts.lib = lib;
    opts.link.port = port;
    opts.link.remoteFrames = opts.remoteLink;

    // Each option's value and what it may be, said when it is not.
    struct Check {
        const char *name;
        const std::string &value;
        bool ok;
        const char *allowed;
    };
    int n = 0;
    const char *const bauds = "a speed a serial driver offers, 50 to 4000000: 9600, 19200, 38400, "
                              "57600, 115200, ...";
    const char *const ms = "milliseconds, 1 to 60000";
    const Check checks[] = {
        {"--baud", baud,
         baud.empty() || (toInt(baud, 50, 4000000, opts.link.format.baud) &&
                          standardBaud(opts.link.format.baud)),
         bauds},
        {"--parity", parity, parity.empty() || parityByName(parity) != 0,
         "none, even or odd (N, E, O)"},
        {"--data", data, data.empty() || toInt(data, 8, 8, opts.link.format.dataBits),
         "8: Modbus RTU sends 8 data bits"},
        {"--stop", stop, stop.empty() || toInt(stop, 1, 2, opts.link.format.stopBits), "1 or 2"},
        {"--timeout-ms", timeout, timeout.empty() || toInt(timeout, 1, 60000, opts.link.timeoutMs),
         ms},
        {"--byte-timeout-ms", byteTimeout,
         byteTimeout.empty() || toInt(byteTimeout, 1, 60000, opts.link.byteTimeoutMs), ms},
        {"--late-window-ms", window, window.empty() || toInt(window, 1, 600000, opts.link.windowMs),
         "milliseconds, 1 to 600000"},
        {"--gap-ms", gap,
         gap.empty() || (toInt(gap, 0, 10000, n) && (opts.link.gapUs = n * 1000) >= 0),
         "milliseconds, 0 to 10000"},
        {"--rts-delay-before", rtsBefore,
         rtsBefore.empty() || toInt(rtsBefore, 0, 1000, opts.link.rtsDelayBefore),
         "milliseconds, 0 to 1000"},
        {"--rts-delay-after", rtsAfter,
         rtsAfter.empty() || toInt(rtsAfter, 0, 1000, opts.link.rtsDelayAfter),
         "milliseconds, 0 to 1000"},
        {"--station", station, station.empty() || toInt(station, 0, 247, opts.station),
         "0 (broadcast) to 247"},
        {"--retries", retries, retries.empty() || toInt(retries, 0, 100, opts.retries), "0 to 100"},
        {"--block", block, block.empty() || toInt(block, 1, 125, opts.blockUnits),
         "1 to 125 units a request"},
        {"--link-no", linkNo, linkNo.empty() || toInt(linkNo, 0, 255, opts.linkNo), "0 to 255"},
        {"--scan-bauds", scanBauds,
         scanBauds.empty() || (parseNumberList(QString::fromStdString(scanBauds), 50, 4000000,
                                               opts.scanSettings.bauds) &&
                               std::all_of(opts.scanSettings.bauds.begin(),
                                           opts.scanSettings.bauds.end(), standardBaud)),
         "a list of speeds a serial driver offers: 9600,19200,115200"},
        {"--scan-parities", scanParities,
         scanParities.empty() || parseParities(scanParities, opts.scanSettings.parities),
         "a list of none, even, odd"},
        {"--scan-stop", scanStop,
         scanStop.empty() || toInt(scanStop, 1, 2, opts.scanSettings.stopBits), "1 or 2"},
        {"--scan-stations", scanStations,
         parseNumberList(QString::fromStdString(scanStations.empty() ? "1-247" : scanStations), 0,
                         247, opts.scanSettings.stations),
         "stations 0 to 247, listed and in ranges: 1-10,17"},
        {"--interval-ms", interval,
         interval.empty() || toInt(interval, 0, 3600000, opts.intervalMs),
         "milliseconds, 0 to 3600000"},
        {"--scans", scans,
         scans.empty() || (toInt(scans, 1, 1000000000, n) && (opts.scans = n) > 0),
         "1 to 1000000000"},
        {"--duration", duration,
         duration.empty() || ((opts.durationS = QString::fromStdString(duration).toDouble()) > 0),
         "seconds, more than 0"},
    };
    for (const Check &c : checks) {
        if (!c.ok) {
            error = QString("bad value '%1' for %2 (%3)")
                        .arg(QString::fromStdString(c.value), c.name, c.allowed);
            return false;
        }
    }
    if (opts.json && opts.csv) {
        error = "--json and --csv do not combine";
        return false;
    }
    if (!parity.empty())
        opts.link.format.parity = parityByName(parity);
    if (!rtsBefore.empty() || !rtsAfter.empty())
        opts.link.rs485 = true;
    QString formatError;
    if (hex)
        opts.format.kind = ValueFormat::Hex;
    if (!format.empty() && !parseFormat(QString::fromStdString(format), opts.format, formatError)) {
        error = "--format: " + formatError;
        return false;
    }

    QStringList varTexts;
    const std::vector<std::string> extras = app.remaining();
    for (const std::string &e : extras) {
        const QString arg = QString::fromLocal8Bit(e.c_str());
        if (arg.startsWith('-') && arg.size() > 1) {
            error = "unknown option " + arg;
            return false;
        }
        if (looksLikePort(arg) && opts.link.port.empty())
            opts.link.port = (arg.startsWith("tty") ? "/dev/" + arg : arg).toStdString();
        else
            varTexts << arg;
    }
    if (!parseVarList(varTexts.join("\n"), opts.multiStation, opts.vars, error))
        return false;
    if (!varsFile.empty()) {
        QFile file(QString::fromStdString(varsFile));
        if (!file.open(QIODevice::ReadOnly)) {
            error = "cannot read " + file.fileName() + ": " + file.errorString();
            return false;
        }
        // Line by line, so a mistake is named by its place in the file.
        const QStringList lines = QString::fromLocal8Bit(file.readAll()).split('\n');
        for (int i = 0; i < lines.size(); ++i) {
            if (!parseVarList(lines.at(i), opts.multiStation, opts.vars, error)) {
                error = QString("%1:%2: %3").arg(file.fileName()).arg(i + 1).arg(error);
                return false;
            }
        }
    }
    for (int i = 0; i < opts.vars.size(); ++i) {
        VarSpec &v = opts.vars[i];
        if (v.hasFormat || !isWordArea(v.areaType))
            continue;
        v.format = opts.format;
        if (registersPerValue(v.format) == 2 && v.count % 2) {
            error = QString("%1: a 32-bit format takes an even number of registers")
                        .arg(elementName(v.areaType, v.address));
            return false;
        }
    }
    for (const std::string &text : writes) {
        WriteSpec w;
        if (!parseWriteSpec(QString::fromLocal8Bit(text.c_str()), opts.multiStation, w, error,
                            opts.format))
            return false;
        opts.writes.append(w);
    }
    QList<const VarSpec *> targets;
    for (const VarSpec &v : opts.vars)
        targets << &v;
    for (const WriteSpec &w : opts.writes)
        targets << &w.target;
    for (const VarSpec *v : targets) {
        error = stationPrefixRefusal(*v, opts.multiStation, opts.station);
        if (!error.isEmpty())
            return false;
    }
    if (!timeout.empty())
        opts.scanSettings.timeoutMs = opts.link.timeoutMs;
    // Options that cannot hold together are refused, not half obeyed.
    const struct {
        bool clash;
        const char *why;
    } clashes[] = {
        {opts.scan && !opts.vars.isEmpty(), "--scan takes no variables"},
        {opts.scan && !opts.writes.isEmpty(), "--scan writes nothing: leave --write out"},
        {opts.once && !scans.empty(), "--once is one scan: leave --scans out, or --once"},
        {opts.once && !duration.empty(), "--once ends after one scan: leave --duration out"},
        {!scans.empty() && !duration.empty(), "--scans and --duration both say when to stop"},
        {opts.monitor && !opts.vars.isEmpty(), "--monitor listens to all: it takes no variables"},
        {opts.monitor && !opts.writes.isEmpty(), "--monitor never sends: leave --write out"},
        {opts.monitor && (opts.scan || opts.once || !scans.empty()),
         "--monitor listens until --duration or Ctrl-C: leave --scan, --once and --scans out"},
        {!opts.replay.empty() && !opts.monitor, "--replay goes with --monitor"},
        {!opts.replay.empty() && !opts.capture.empty(),
         "--replay reads a capture and --capture writes one: choose one"},
        {opts.vars.isEmpty() && opts.writes.isEmpty() && !opts.scan && !opts.monitor,
         "nothing to poll or write: give variables such as D0-D9 M0-M15, or --write"},
    };
    for (const auto &c : clashes) {
        if (c.clash) {
            error = c.why;
            return false;
        }
    }
    if (opts.link.port.empty() && opts.replay.empty()) {
        error = "no serial port given (--port /dev/ttyUSB0)";
        return false;
    }
    // Behind some gateways the line is not this side's to set, or to frame.
    rvlink::LineAddress address;
    if (!rvlink::parseLineAddress(opts.link.port, address, why)) {
        error = QString::fromStdString(why);
        return false;
    }
    if (opts.scan && !rvlink::setsLineFormat(address) &&
        !(scanBauds + scanParities + scanStop).empty()) {
        error = "behind socket:// and modbus-tcp:// the line's settings are the gateway's: leave "
                "--scan-bauds, --scan-parities and --scan-stop out, or use rfc2217://";
        return false;
    }
    if (opts.remoteLink && address.kind == rvlink::LineAddress::ModbusTcp) {
        error = "no Modbus TCP frame carries a remote link's request descriptions: use socket:// "
                "or rfc2217:// for --remote-link";
        return false;
    }
    return true;
}
