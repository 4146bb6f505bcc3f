#include "telnet.h"

#include <algorithm>

namespace rvlink {

namespace telnet {

Bytes escape(const std::uint8_t *data, std::size_t n)
{
    Bytes out;
    out.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        out.push_back(data[i]);
        if (data[i] == IAC)
            out.push_back(IAC);
    }
    return out;
}

void Reader::feed(const std::uint8_t *in, std::size_t n, Bytes &data,
                  std::vector<Command> &commands)
{
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t b = in[i];
        switch (state_) {
        case Data:
            if (b == IAC)
                state_ = Iac;
            else
                data.push_back(b);
            break;
        case Iac:
            command_ = Command();
            if (b == IAC) {
                data.push_back(b);
                state_ = Data;
            } else if (b >= WILL || b == SB) {
                command_.verb = b;
                state_ = Verb;
            } else {
                state_ = Data;  // NOP, go-ahead and the like carry nothing here
            }
            break;
        case Verb:
            command_.option = b;
            if (command_.verb == SB) {
                state_ = Sub;
            } else {
                commands.push_back(command_);
                state_ = Data;
            }
            break;
        case Sub:
            if (b == IAC)
                state_ = SubIac;
            else
                command_.payload.push_back(b);
            break;
        case SubIac:
            if (b == IAC) {
                command_.payload.push_back(b);
                state_ = Sub;
            } else {
                // SE ends it; anything else is a malformed end, taken as one.
                commands.push_back(command_);
                state_ = Data;
            }
            break;
        }
    }
}

Bytes negotiation(int verb, int option)
{
    return Bytes{IAC, std::uint8_t(verb), std::uint8_t(option)};
}

Bytes comPortCommand(int command, const Bytes &value)
{
    Bytes out{IAC, SB, ComPort, std::uint8_t(command)};
    const Bytes escaped = escape(value.data(), value.size());
    out.insert(out.end(), escaped.begin(), escaped.end());
    out.push_back(IAC);
    out.push_back(SE);
    return out;
}

namespace {

// What the client does: sends binary data without go-aheads and controls
// the COM port; takes binary data without go-aheads.
const int kWill[] = {Binary, SuppressGoAhead, ComPort};
const int kDo[] = {Binary, SuppressGoAhead};

template <std::size_t N>
bool among(const int (&list)[N], int option)
{
    return std::find(list, list + N, option) != list + N;
}

}  // namespace

Bytes opening()
{
    Bytes out;
    for (int option : kWill) {
        const Bytes b = negotiation(WILL, option);
        out.insert(out.end(), b.begin(), b.end());
    }
    for (int option : kDo) {
        const Bytes b = negotiation(DO, option);
        out.insert(out.end(), b.begin(), b.end());
    }
    return out;
}

Bytes Negotiator::answer(int verb, int option)
{
    // Agreement with what the opening said needs no answer; a refusal is
    // said once, so two ends never argue in a loop.
    int refusal;
    if (verb == DO && !among(kWill, option))
        refusal = WONT;
    else if (verb == WILL && !among(kDo, option))
        refusal = DONT;
    else
        return Bytes();
    const int key = refusal * 256 + option;
    if (std::find(refused_.begin(), refused_.end(), key) != refused_.end())
        return Bytes();
    refused_.push_back(key);
    return negotiation(refusal, option);
}

std::vector<Setting> formatSettings(const LineFormat &f)
{
    const unsigned baud = unsigned(f.baud);
    // Parity: 1 none, 2 odd, 3 even.
    const std::uint8_t parity = f.parity == 'N' ? 1 : f.parity == 'O' ? 2 : 3;
    return {
        {SetBaudRate, Bytes{std::uint8_t(baud >> 24), std::uint8_t(baud >> 16),
                            std::uint8_t(baud >> 8), std::uint8_t(baud)}},
        {SetDataSize, Bytes{std::uint8_t(f.dataBits)}},
        {SetParity, Bytes{parity}},
        {SetStopSize, Bytes{std::uint8_t(f.stopBits)}},
    };
}

bool answers(const Command &c, int command)
{
    return c.verb == SB && c.option == ComPort && !c.payload.empty() &&
           c.payload[0] == command + kServerOffset;
}

}  // namespace telnet

}  // namespace rvlink
