#include "sim_options.h"

#include <stdlib.h>

#include <sstream>

namespace {

bool toDouble(const std::string &text, double low, double high, double &out)
{
    char *end = nullptr;
    out = strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && out >= low && out <= high;
}

bool toInt(const std::string &text, long low, long high, int &out)
{
    char *end = nullptr;
    const long v = strtol(text.c_str(), &end, 10);
    out = int(v);
    return !text.empty() && end && *end == '\0' && v >= low && v <= high;
}

bool parseStations(const std::string &text, std::vector<int> &out)
{
    out.clear();
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) {
        int s = 0;
        if (!toInt(item, 1, 247, s))
            return false;
        out.push_back(s);
    }
    return !out.empty();
}

}  // namespace

const char *simUsage()
{
    return "usage: rvsim [options]\n"
           "  serves every coil and holding register of a Quorvel RV controller\n"
           "  --port DEV        serve this serial device (default: a new pseudo-terminal)\n"
           "  --link PATH       also make PATH a symlink to the pseudo-terminal\n"
           "  --baud N --parity N|E|O --stop 1|2   line settings for --port (19200 8E1)\n"
           "  --station LIST    stations answered, e.g. 1,2 (default 1)\n"
           "  --drop R --corrupt R --truncate R --wrong-station R --delay R\n"
           "                    share of replies (0..1) dropped, with a bad CRC, cut short,\n"
           "                    from another station, or late by --delay-ms (default 200)\n"
           "  --seed N          random seed of the faults (default 1)\n"
           "  --tick-ms N       live data step: D0 counts, D1 ramps, M0 blinks (100)\n"
           "  -q                do not report writes\n";
}

bool parseSimOptions(int argc, char **argv, SimOptions &o, std::string &error)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            o.help = true;
            return true;
        }
        if (arg == "-q" || arg == "--quiet") {
            o.quiet = true;
            continue;
        }
        if (i + 1 >= argc) {
            error = arg.compare(0, 2, "--") == 0 ? arg + " needs a value" : "unknown argument " + arg;
            return false;
        }
        const std::string value = argv[++i];
        bool ok = true;
        int n = 0;
        if (arg == "--port") o.device = value;
        else if (arg == "--link") o.link = value;
        else if (arg == "--baud") ok = toInt(value, 50, 4000000, o.baud);
        else if (arg == "--stop") ok = toInt(value, 1, 2, o.stopBits);
        else if (arg == "--parity") {
            ok = value == "N" || value == "E" || value == "O";
            o.parity = ok ? value[0] : 'E';
        }
        else if (arg == "--station") ok = parseStations(value, o.stations);
        else if (arg == "--drop") ok = toDouble(value, 0, 1, o.faults.drop);
        else if (arg == "--corrupt") ok = toDouble(value, 0, 1, o.faults.badCrc);
        else if (arg == "--truncate") ok = toDouble(value, 0, 1, o.faults.truncate);
        else if (arg == "--wrong-station") ok = toDouble(value, 0, 1, o.faults.wrongStation);
        else if (arg == "--delay") ok = toDouble(value, 0, 1, o.faults.delay);
        else if (arg == "--delay-ms") ok = toInt(value, 0, 60000, o.faults.delayMs);
        else if (arg == "--seed") { ok = toInt(value, 0, 2147483647, n); o.faults.seed = unsigned(n); }
        else if (arg == "--tick-ms") ok = toInt(value, 1, 60000, o.tickMs);
        else {
            error = "unknown option " + arg;
            return false;
        }
        if (!ok) {
            error = "bad value '" + value + "' for " + arg;
            return false;
        }
    }
    const ModbusServer::FaultRates &f = o.faults;
    if (f.drop + f.badCrc + f.truncate + f.wrongStation + f.delay > 1.0 + 1e-9) {
        error = "fault rates add up to more than 1";
        return false;
    }
    return true;
}
