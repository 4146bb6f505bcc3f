#include "sim_options.h"

#include <stdlib.h>

#include <algorithm>

#include "element_range.h"
#include "common/tool_cli.h"
#include "link/serial_port.h"

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
    const char parity = parityByName(text);
    if (parity)
        out = parity;
    return parity != 0;
}

bool markRefused(const std::vector<std::string> &ranges, ModbusBridge::Refusals &r,
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

std::vector<std::string> split(const std::string &text)
{
    std::vector<std::string> items;
    size_t from = 0;
    for (size_t comma; (comma = text.find(',', from)) != std::string::npos; from = comma + 1)
        items.push_back(text.substr(from, comma - from));
    items.push_back(text.substr(from));
    return items;
}

// "ok,lose,twice" into faults, by the names the log uses.
bool parseScript(const std::string &text, std::vector<FaultPlan::Fault> &out)
{
    out.clear();
    for (const std::string &name : split(text)) {
        FaultPlan::Fault f;
        if (!FaultPlan::byName(name, f))
            return false;
        out.push_back(f);
    }
    return true;
}

bool scripted(const std::vector<FaultPlan::Fault> &script, FaultPlan::Fault f)
{
    return std::find(script.begin(), script.end(), f) != script.end();
}

bool terminalSpeed(int baud)
{
    speed_t speed;
    return rvlink::termiosSpeed(baud, speed);
}

// BYTES,MS: bytes of a piece and the pause after it.
bool parsePieces(const std::string &text, LineSettings &line)
{
    const std::vector<std::string> parts = split(text);
    return parts.size() == 2 && toInt(parts[0], 1, 256, line.pieceBytes) &&
           toInt(parts[1], 0, 60000, line.pieceGapMs);
}

}  // namespace

bool parseSimOptions(int argc, char **argv, SimOptions &o, std::string &error)
{
    CLI::App app("rvsim");
    setUpToolCli(app, {o.help, o.version, o.quiet, o.verbose});

    std::string baud, parity, stop, tickMs, seed, delayMs, twiceMs, turnaround, jitter, pieces,
        script;
    std::vector<std::string> stations, refuse, functions;
    bool noPace = false, anyBaud = false;
    struct Rate {
        const char *name;
        double *target;
        std::string text;
    } rates[] = {
        {"--drop", &o.faults.drop, ""},         {"--corrupt", &o.faults.badCrc, ""},
        {"--truncate", &o.faults.truncate, ""}, {"--wrong-station", &o.faults.wrongStation, ""},
        {"--delay", &o.faults.delay, ""},       {"--exception-rate", &o.faults.exception, ""},
        {"--lose", &o.faults.lose, ""},         {"--twice", &o.faults.twice, ""},
        {"--noise", &o.faults.noise, ""},       {"--late-answering", &o.faults.lateAnswering, ""},
        {"--resend", &o.faults.resend, ""}};
    app.add_option("--port", o.device);
    app.add_option("--link", o.link);
    app.add_option("--tap", o.tap);
    std::string listenModbusTcp;
    app.add_option("--listen", o.listen);
    app.add_option("--listen-modbus-tcp", listenModbusTcp);
    app.add_option("-b,--baud", baud);
    app.add_option("-P,--parity", parity);
    app.add_option("-s,--stop", stop);
    app.add_option("-a,--station", stations)->delimiter(',');
    app.add_option("--data", o.dataFile);
    app.add_option("--log", o.logFile);
    app.add_option("--tick-ms", tickMs);
    app.add_option("--seed", seed);
    app.add_option("--delay-ms", delayMs);
    app.add_option("--twice-ms", twiceMs);
    app.add_option("--turnaround-ms", turnaround);
    app.add_option("--jitter-ms", jitter);
    app.add_option("--pieces", pieces);
    app.add_option("--script", script);
    app.add_flag("--no-pace", noPace);
    app.add_flag("--any-baud", anyBaud);
    app.add_flag("--remote-link", o.remoteLink);
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
        {"--baud", baud.empty() || toInt(baud, 50, 4000000, o.line.format.baud), baud},
        {"--parity", parity.empty() || parseParity(parity, o.line.format.parity), parity},
        {"--stop", stop.empty() || toInt(stop, 1, 2, o.line.format.stopBits), stop},
        {"--tick-ms", tickMs.empty() || toInt(tickMs, 1, 60000, o.tickMs), tickMs},
        {"--delay-ms", delayMs.empty() || toInt(delayMs, 0, 60000, o.faults.delayMs), delayMs},
        {"--twice-ms", twiceMs.empty() || toInt(twiceMs, 0, 60000, o.faults.twiceMs), twiceMs},
        {"--turnaround-ms", turnaround.empty() || toInt(turnaround, 0, 60000, o.line.turnaroundMs),
         turnaround},
        {"--jitter-ms", jitter.empty() || toInt(jitter, 0, 60000, o.line.jitterMs), jitter},
        {"--pieces", pieces.empty() || parsePieces(pieces, o.line), pieces},
        {"--script", !app.count("--script") || parseScript(script, o.script), script},
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
    // One line a run; Modbus TCP frames carry no request descriptions.
    const struct {
        bool clash;
        const char *why;
    } clashes[] = {
        {!o.listen.empty() && !listenModbusTcp.empty(),
         "--listen and --listen-modbus-tcp: one line a run"},
        {!(o.listen + listenModbusTcp).empty() && !(o.device + o.link).empty(),
         "--listen and --listen-modbus-tcp serve TCP: leave --port and --link out"},
        {!listenModbusTcp.empty() && o.remoteLink,
         "--remote-link: no Modbus TCP frame carries request descriptions (use --listen)"},
    };
    for (const auto &c : clashes) {
        if (c.clash) {
            error = c.why;
            return false;
        }
    }
    if (!listenModbusTcp.empty()) {
        o.listen = listenModbusTcp;
        o.modbusTcp = true;
    }
    const bool onPty = o.device.empty() && o.listen.empty();
    o.line.pace = !noPace;
    const int baudRate = o.line.format.baud;
    o.line.ownSettingsOnly = onPty && !anyBaud && terminalSpeed(baudRate);
    const FaultPlan::Rates &f = o.faults;
    const double faultSum = f.total();
    if (faultSum > 1.0 + 1e-9) {
        error = "fault rates add up to more than 1";
        return false;
    }

    // Options that change nothing in this run.
    typedef FaultPlan F;
    for (const char *line : {"--baud", "--stop"})
        if (onPty && noPace && anyBaud && app.count(line))
            o.notes.push_back(std::string(line) +
                              " has no effect on a pseudo-terminal with --no-pace and --any-baud");
    if (onPty && noPace && app.count("--parity"))
        o.notes.push_back("--parity has no effect on a pseudo-terminal with --no-pace (it "
                          "carries no parity)");
    if (onPty && !anyBaud && !terminalSpeed(baudRate))
        o.notes.push_back("requests at any speed are answered: no terminal speed is " +
                          std::to_string(baudRate) + " baud");
    if (!onPty && anyBaud)
        o.notes.push_back("--any-baud has no effect on a serial port: its UART hears its own "
                          "settings only");
    if (onPty && !noPace && app.count("--parity"))
        o.notes.push_back("--parity sets only the character time here: a pseudo-terminal "
                          "carries no parity");
    if (app.count("--delay-ms") && f.delay <= 0 && f.lateAnswering <= 0 &&
        !scripted(o.script, F::Late) && !scripted(o.script, F::LateAnswering))
        o.notes.push_back("--delay-ms has no effect without --delay, --late-answering, or late "
                          "or late-answering in --script");
    if (app.count("--twice-ms") && f.twice <= 0 && !scripted(o.script, F::Twice))
        o.notes.push_back("--twice-ms has no effect without --twice or twice in --script");
    const bool randomScript = scripted(o.script, F::Cut) || scripted(o.script, F::Noise);
    if (app.count("--seed") && faultSum <= 0 && o.line.jitterMs <= 0 && !randomScript)
        o.notes.push_back("--seed has no effect without a fault rate, --jitter-ms, or cut or "
                          "noise in --script");
    return true;
}
