#include "rfc2217_carrier.h"

#include <chrono>

namespace rvlink {

namespace {

// The settings' names, in the order telnet::formatSettings gives them.
const char *const kSettingNames[] = {"baud rate", "data bits", "parity (1 none, 2 odd, 3 even)",
                                     "stop bits"};

unsigned valueOf(const Bytes &b)
{
    unsigned v = 0;
    for (std::size_t i = 0; i < b.size(); ++i)
        v = v << 8 | b[i];
    return v;
}

}  // namespace

void Rfc2217Carrier::read(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer,
                          std::vector<telnet::Command> &commands)
{
    const std::size_t from = commands.size();
    reader_.feed(data, n, line, commands);
    for (std::size_t i = from; i < commands.size(); ++i) {
        const Bytes a = negotiator_.answer(commands[i].verb, commands[i].option);
        answer.insert(answer.end(), a.begin(), a.end());
    }
}

bool Rfc2217Carrier::unwrap(const std::uint8_t *data, std::size_t n, Bytes &line, Bytes &answer)
{
    // Notifications and late answers to the control lines tell the line nothing.
    std::vector<telnet::Command> commands;
    read(data, n, line, answer, commands);
    return true;
}

bool Rfc2217Carrier::start(TcpConnection &connection, std::string &error)
{
    typedef std::chrono::steady_clock Clock;
    reader_ = telnet::Reader();
    negotiator_ = telnet::Negotiator();
    const std::vector<telnet::Setting> settings = telnet::formatSettings(format_);
    std::vector<Bytes> answered(settings.size());
    std::size_t done = 0;
    bool agreed = false;
    if (!connection.send(telnet::opening())) {
        error = "the connection failed as the session opened";
        return false;
    }
    const Clock::time_point started = Clock::now();
    while (done < settings.size()) {
        const int left =
            kNetworkSetUpMs -
            int(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started)
                    .count());
        std::uint8_t raw[512];
        const int n = left > 0 ? connection.receive(raw, sizeof raw, left) : 0;
        if (n <= 0) {
            error = n < 0 ? "the server closed the connection while the far port was set up"
                    : agreed
                        ? "the far port's settings were not answered within 3 s"
                        : "no COM port control (RFC 2217) agreed within 3 s: for a serial server "
                          "in raw mode use socket://";
            return false;
        }
        // Bytes from the far port before it is set are not the line's.
        Bytes stale, answer;
        std::vector<telnet::Command> commands;
        read(raw, std::size_t(n), stale, answer, commands);
        const bool wasAgreed = agreed;
        for (const telnet::Command &c : commands) {
            if (c.option == telnet::ComPort && (c.verb == telnet::DONT || c.verb == telnet::WONT)) {
                error = "the server refuses COM port control (RFC 2217): use socket://";
                return false;
            }
            agreed = agreed || (c.option == telnet::ComPort && c.verb == telnet::DO);
            for (std::size_t i = 0; i < settings.size(); ++i) {
                if (telnet::answers(c, settings[i].command) && answered[i].empty()) {
                    answered[i] = c.payload;
                    ++done;
                }
            }
        }
        if (agreed && !wasAgreed) {
            for (const telnet::Setting &s : settings) {
                const Bytes command = telnet::comPortCommand(s.command, s.value);
                answer.insert(answer.end(), command.begin(), command.end());
            }
        }
        if (!answer.empty() && !connection.send(answer)) {
            error = "the connection failed while the far port was set up";
            return false;
        }
    }
    for (std::size_t i = 0; i < settings.size(); ++i) {
        const Bytes took(answered[i].begin() + 1, answered[i].end());
        if (took != settings[i].value) {
            error = std::string("the far port did not take its ") + kSettingNames[i] + ": " +
                    std::to_string(valueOf(settings[i].value)) + " asked, " +
                    std::to_string(valueOf(took)) + " answered";
            return false;
        }
    }
    Bytes control;
    for (const telnet::Setting &s : {telnet::Setting{telnet::SetControl, {telnet::NoFlowControl}},
                                     telnet::Setting{telnet::SetControl, {telnet::DtrOn}},
                                     telnet::Setting{telnet::SetControl, {telnet::RtsOn}},
                                     telnet::Setting{telnet::PurgeData, {telnet::kPurgeBoth}}}) {
        const Bytes command = telnet::comPortCommand(s.command, s.value);
        control.insert(control.end(), command.begin(), command.end());
    }
    if (!connection.send(control)) {
        error = "the connection failed while the far port was set up";
        return false;
    }
    return true;
}

}  // namespace rvlink
