#include "options.h"

#include <QFile>
#include <QStringList>

namespace {

bool toInt(const QString &text, int low, int high, int &out)
{
    bool ok = false;
    out = text.toInt(&ok, 10);
    return ok && out >= low && out <= high;
}

}  // namespace

const char *usageText()
{
    return "usage: rvpoll --port DEVICE [options] VARIABLES...\n"
           "  VARIABLES      D0-D19 M0-M63 X0-X17 TD5 (X and Y octal); 1:D0-D9 with --multi-station\n"
           "  --port DEV     serial device (or give it as the first argument)\n"
           "  --baud N       19200   --parity N|E|O  E   --data 7|8  8   --stop 1|2  1\n"
           "  --timeout-ms N reply timeout, 200      --gap-ms N  end-of-reply silence\n"
           "  --station N    station, 1              --retries N retries before giving up, 2\n"
           "  --block N      most units per request, 64\n"
           "  --multi-station  every variable names its station (1:D0-D9 2:D0-D9)\n"
           "  --vars FILE    variables from a file ('#' comments)\n"
           "  --write E=V    write before polling: D100=0x1234, D10=1,2,3, M5=1 (repeatable);\n"
           "                 lines typed on standard input are written the same way\n"
           "  --once         one full scan, then exit     --scans N  N scans, then exit\n"
           "  --duration S   poll for S seconds           --interval-ms N  pause between scans, 100\n"
           "  --json         one JSON object per scan     --hex  words in hexadecimal\n"
           "  --echo         discard the echo of a 2-wire adapter\n"
           "  -v             trace frames: [01][03].. sent, <01><03>.. received\n"
           "  --lib PATH     driver library instead of libQuorvel_RV_Series.so.1\n"
           "                 (built against the same Qt, 4 or 5, as rvpoll: it refuses the other)\n"
           "exit status: 0 ok, 1 the controller never answered (or --once/--scans ended on\n"
           "a failed scan), 2 bad command line, port or driver\n";
}

bool parseOptions(int argc, char **argv, PollOptions &opts, QString &error)
{
    QStringList varTexts, writeTexts;
    QString varsFile;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        const bool hasValue = i + 1 < argc;
        const QString value = hasValue ? QString::fromLocal8Bit(argv[i + 1]) : QString();
        int n = 0;
        if (arg == "-h" || arg == "--help") {
            opts.help = true;
            return true;
        }
        if (arg == "--once") { opts.once = true; continue; }
        if (arg == "--json") { opts.json = true; continue; }
        if (arg == "-v" || arg == "--verbose") { opts.verbose = true; continue; }
        if (arg == "--hex") { opts.hex = true; continue; }
        if (arg == "--echo") { opts.link.discardEcho = true; continue; }
        if (arg == "--multi-station") { opts.multiStation = true; continue; }
        if (arg.startsWith("--")) {
            if (!hasValue) {
                error = arg + " needs a value";
                return false;
            }
            ++i;
            bool ok = true;
            if (arg == "--port") opts.link.port = value.toStdString();
            else if (arg == "--lib") opts.lib = value.toStdString();
            else if (arg == "--vars") varsFile = value;
            else if (arg == "--write") writeTexts << value;
            else if (arg == "--baud") ok = toInt(value, 50, 4000000, opts.link.baud);
            else if (arg == "--data") ok = toInt(value, 7, 8, opts.link.dataBits);
            else if (arg == "--stop") ok = toInt(value, 1, 2, opts.link.stopBits);
            else if (arg == "--timeout-ms") ok = toInt(value, 1, 60000, opts.link.timeoutMs);
            else if (arg == "--gap-ms") ok = toInt(value, 0, 10000, opts.link.gapMs);
            else if (arg == "--station") ok = toInt(value, 0, 247, opts.station);
            else if (arg == "--retries") ok = toInt(value, 0, 100, opts.retries);
            else if (arg == "--block") ok = toInt(value, 1, 125, opts.blockUnits);
            else if (arg == "--interval-ms") ok = toInt(value, 0, 3600000, opts.intervalMs);
            else if (arg == "--scans") { ok = toInt(value, 1, 1000000000, n); opts.scans = n; }
            else if (arg == "--duration") opts.durationS = value.toDouble(&ok), ok = ok && opts.durationS > 0;
            else if (arg == "--parity") {
                const QString p = value.toUpper();
                ok = p == "N" || p == "E" || p == "O";
                if (ok)
                    opts.link.parity = p.at(0).toLatin1();
            } else {
                error = "unknown option " + arg;
                return false;
            }
            if (!ok) {
                error = QString("bad value '%1' for %2").arg(value, arg);
                return false;
            }
            continue;
        }
        if (arg.startsWith('/') && opts.link.port.empty())
            opts.link.port = arg.toStdString();
        else
            varTexts << arg;
    }
    if (!varsFile.isEmpty()) {
        QFile file(varsFile);
        if (!file.open(QIODevice::ReadOnly)) {
            error = "cannot read " + varsFile;
            return false;
        }
        varTexts << QString::fromLocal8Bit(file.readAll());
    }
    if (!parseVarList(varTexts.join("\n"), opts.multiStation, opts.vars, error))
        return false;
    for (int i = 0; i < writeTexts.size(); ++i) {
        WriteSpec w;
        if (!parseWriteSpec(writeTexts.at(i), opts.multiStation, w, error))
            return false;
        opts.writes.append(w);
    }
    if (opts.vars.isEmpty()) {
        error = "nothing to poll: give variables such as D0-D9 M0-M15";
        return false;
    }
    if (opts.link.port.empty()) {
        error = "no serial port given (--port /dev/ttyUSB0)";
        return false;
    }
    return true;
}
