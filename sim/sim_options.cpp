#include "sim_options.h"

#include <stdlib.h>

#include "element_range.h"
#include "options.h"
#include "tool_cli.h"

namespace {

bool toDouble(const std::string &text, double low, double high, double &out)
{
    char *end = nullptr;
    out = strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && out >= low && out <= high;
}

// Decimal, or hexadecimal with 0x.
bool toInt(const std::string &text, long low, long high, int &out)
{
    char *end = nullptr;
    const long v = strtol(text.c_str(), &end, text.compare(0, 2, "0x") == 0 ? 16 : 10);
    out = int(v);
    return !text.empty() && end && *end == '\0' && v >= low && v <= high;
}

bool parseStations(const std::vector<std::string> &items, std::vector<int> &out)
{
    out.clear();
    for (const std::string &item : items) {
        int s = 0;
        if (!toInt(item, 1, 247, s))
            return false;
        out.push_back(s);
    }
    return !out.empty();
}

std::string joined(const std::vector<std::string> &items)
{
    std::string text;
    for (size_t i = 0; i < items.size(); ++i)
        text += (i ? "," : "") + items[i];
    return text;
}

// none|even|odd or N|E|O, in any case: rvpoll's reading of a parity.
bool parseParity(const std::string &text, char &out)
{
    const char parity = parityByName(QString::fromStdString(text));
    if (parity)
        out = parity;
    return parity != 0;
}

bool markRefused(const std::vector<std::string> &ranges, ModbusServer::Refusals &r,
                 std::string &error)
{
    for (const std::string &text : ranges) {
        ElementRange range;
        if (!parseElementRange(text, range, error))
            return false;
        std::vector<bool> &space = range.coils ? r.coils : r.registers;
        space.resize(65536);
        for (int a : range.addresses)
            space[a] = true;
    }
    return true;
}

}  // namespace

const char *simUsage()
{
    return "Usage: rvsim [OPTION]...\n"
           "Play a Quorvel RV controller: answer Modbus RTU requests for every coil and\n"
           "holding register on a new pseudo-terminal or a serial port, with live values,\n"
           "preset values, refusals and line faults on request.\n"
           "\n"
           "Line:\n"
           "      --port=DEV        serve this serial device (default: a new pseudo-terminal)\n"
           "      --link=PATH       also make PATH a symbolic link to the line\n"
           "  -b, --baud=N          line speed for --port (default 19200)\n"
           "  -P, --parity=P        none, even or odd (or N, E, O; any case) for --port\n"
           "                        (default even)\n"
           "  -s, --stop=N          stop bits for --port, 1 or 2 (default 1)\n"
           "  -a, --station=LIST    stations answered, e.g. 1,2 (default 1)\n"
           "\n"
           "Values:\n"
           "      --data=FILE       preset values: entries such as D100=1234, M5=1, X10=1,\n"
           "                        D0-D9=7 (the whole range), separated by blanks or lines\n"
           "      --tick-ms=N       live data step: D0 counts, D1 ramps, M0 blinks (100)\n"
           "\n"
           "Refusals and faults:\n"
           "      --refuse=RANGES   answer requests touching these elements with exception\n"
           "                        0x02 (illegal data address), e.g. D100-D199,M0-M7\n"
           "      --refuse-function=LIST  answer these functions with exception 0x01\n"
           "                        (illegal function), e.g. 0x10 or 5,6\n"
           "      --exception-rate=R  share of replies (0..1) replaced by exception 0x04\n"
           "                        (server failure), the request not applied\n"
           "      --drop=R          share of replies dropped (the request is applied)\n"
           "      --corrupt=R       share of replies sent with a bad CRC\n"
           "      --truncate=R      share of replies cut short\n"
           "      --wrong-station=R share of replies sent from another station\n"
           "      --delay=R         share of replies sent late\n"
           "      --delay-ms=N      how late a late reply is (default 200)\n"
           "      --seed=N          random seed of the faults (default 1)\n"
           "\n"
           "Output:\n"
           "  -v, --verbose         log every request on standard output\n"
           "      --log=FILE        log every request to FILE: time, station, function,\n"
           "                        address, count and outcome\n"
           "  -q, --quiet           do not report writes\n"
           "  -h, --help            display this help and exit\n"
           "  -V, --version         output version information and exit\n"
           "\n"
           "Option values follow an equals sign or a blank (--baud=9600, --baud 9600).\n"
           "Addresses in the log are coil or register addresses on the line.\n";
}

bool parseSimOptions(int argc, char **argv, SimOptions &o, std::string &error)
{
    CLI::App app("rvsim");
    setUpToolCli(app, {o.help, o.version, o.quiet, o.verbose});

    std::string baud, parity, stop, tickMs, seed, delayMs;
    std::vector<std::string> stations, refuse, functions;
    struct Rate {
        const char *name;
        double *target;
        std::string text;
    } rates[] = {
        {"--drop", &o.faults.drop, ""},         {"--corrupt", &o.faults.badCrc, ""},
        {"--truncate", &o.faults.truncate, ""}, {"--wrong-station", &o.faults.wrongStation, ""},
        {"--delay", &o.faults.delay, ""},       {"--exception-rate", &o.faults.exception, ""}};
    app.add_option("--port", o.device);
    app.add_option("--link", o.link);
    app.add_option("-b,--baud", baud);
    app.add_option("-P,--parity", parity);
    app.add_option("-s,--stop", stop);
    app.add_option("-a,--station", stations)->delimiter(',');
    app.add_option("--data", o.dataFile);
    app.add_option("--log", o.logFile);
    app.add_option("--tick-ms", tickMs);
    app.add_option("--seed", seed);
    app.add_option("--delay-ms", delayMs);
    app.add_option("--refuse", refuse)
        ->delimiter(',')
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--refuse-function", functions)
        ->delimiter(',')
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    for (Rate &r : rates)
        app.add_option(r.name, r.text);
    if (!parseToolCli(app, argc, argv, error))
        return false;
    const std::vector<std::string> extras = app.remaining();
    if (!extras.empty()) {
        error = (extras[0][0] == '-' ? "unknown option " : "unexpected argument ") + extras[0];
        return false;
    }
    if (o.help || o.version)
        return true;

    struct Check {
        const char *name;
        bool ok;
        std::string value;
    };
    int n = 0;
    std::vector<Check> checks = {
        {"--baud", baud.empty() || toInt(baud, 50, 4000000, o.baud), baud},
        {"--parity", parity.empty() || parseParity(parity, o.parity), parity},
        {"--stop", stop.empty() || toInt(stop, 1, 2, o.stopBits), stop},
        {"--tick-ms", tickMs.empty() || toInt(tickMs, 1, 60000, o.tickMs), tickMs},
        {"--delay-ms", delayMs.empty() || toInt(delayMs, 0, 60000, o.faults.delayMs), delayMs},
        {"--seed", seed.empty() || toInt(seed, 0, 2147483647, n), seed},
        {"--station", stations.empty() || parseStations(stations, o.stations), joined(stations)},
    };
    o.faults.seed = seed.empty() ? o.faults.seed : unsigned(n);
    for (const Rate &r : rates)
        checks.push_back({r.name, r.text.empty() || toDouble(r.text, 0, 1, *r.target), r.text});
    for (const std::string &f : functions) {
        int code = 0;
        checks.push_back({"--refuse-function", toInt(f, 1, 127, code), f});
        o.refusals.functions.push_back(code);
    }
    for (const Check &c : checks) {
        if (!c.ok) {
            error = "bad value '" + c.value + "' for " + c.name;
            return false;
        }
    }
    if (!markRefused(refuse, o.refusals, error)) {
        error = "--refuse: " + error;
        return false;
    }
    const ModbusServer::FaultRates &f = o.faults;
    const double faultSum = f.drop + f.badCrc + f.truncate + f.wrongStation + f.delay + f.exception;
    if (faultSum > 1.0 + 1e-9) {
        error = "fault rates add up to more than 1";
        return false;
    }

    // Options that change nothing in this run.
    if (o.device.empty())
        for (const char *line : {"--baud", "--parity", "--stop"})
            if (app.count(line))
                o.notes.push_back(
                    std::string(line) +
                    " has no effect without --port (a pseudo-terminal has no line settings)");
    if (app.count("--delay-ms") && f.delay <= 0)
        o.notes.push_back("--delay-ms has no effect without --delay");
    if (app.count("--seed") && faultSum <= 0)
        o.notes.push_back("--seed has no effect without a fault rate");
    return true;
}
