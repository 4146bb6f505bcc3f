// Telnet as an RFC 2217 serial server speaks it, with no I/O: data bytes
// with IAC (0xFF) doubled, option negotiation, and the COM port control
// option's commands and the server's answers to them.
#ifndef RV_LINK_TELNET_H
#define RV_LINK_TELNET_H

#include <vector>

#include "bytes.h"
#include "line_timing.h"

namespace rvlink {

namespace telnet {

enum Byte { SE = 240, SB = 250, WILL = 251, WONT = 252, DO = 253, DONT = 254, IAC = 255 };
enum Option { Binary = 0, SuppressGoAhead = 3, ComPort = 44 };
// COM port control commands, client to server; the server answers each with
// its code plus 100.
enum ComPortCommand {
    SetBaudRate = 1,
    SetDataSize = 2,
    SetParity = 3,
    SetStopSize = 4,
    SetControl = 5,
    PurgeData = 12
};
const int kServerOffset = 100;
// SET-CONTROL values and the PURGE-DATA value that drops both buffers.
enum ControlValue { NoFlowControl = 1, DtrOn = 8, RtsOn = 11 };
const int kPurgeBoth = 3;

// `data` with every IAC doubled, as it must cross the session.
Bytes escape(const std::uint8_t *data, std::size_t n);

// A command read off the session: a negotiation (verb WILL, WONT, DO or
// DONT and its option) or a subnegotiation (verb SB, its option and the
// bytes between, IAC doubling undone).
struct Command {
    int verb = 0;
    int option = 0;
    Bytes payload;
};

// Splits what the server sends into data and commands, across any cuts.
class Reader {
public:
    void feed(const std::uint8_t *in, std::size_t n, Bytes &data, std::vector<Command> &commands);

private:
    enum State { Data, Iac, Verb, Sub, SubIac };
    State state_ = Data;
    Command command_;
};

// IAC verb option.
Bytes negotiation(int verb, int option);
// A COM port command with its value: IAC SB 44 command value IAC SE.
Bytes comPortCommand(int command, const Bytes &value);

// What the client says first: it will and wants binary data without
// go-aheads, and it will control the COM port.
Bytes opening();
// The answer to the server's WILL, WONT, DO or DONT of `option`, given
// what the client already said; empty when none is due. Options other than
// those of opening() are refused once each.
class Negotiator {
public:
    Bytes answer(int verb, int option);

private:
    std::vector<int> refused_;  // options refused, by WONT (DO) or DONT (WILL) + option
};

// One COM port setting: its command and value.
struct Setting {
    int command;
    Bytes value;
};
// The settings that put the far port in `format` (baud rate, data size,
// parity, stop size), each of which the server must answer with its value.
std::vector<Setting> formatSettings(const LineFormat &format);
// Whether `c` is the server's answer to a setting of `command`.
bool answers(const Command &c, int command);

}  // namespace telnet

}  // namespace rvlink

#endif
