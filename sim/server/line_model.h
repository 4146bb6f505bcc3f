// What a real serial line does to the bytes between the controller and the
// master, which a pseudo-terminal does not: every character takes its bit
// times at the line's speed, the controller thinks before it answers, a USB
// adapter hands a reply over in pieces, and noise damages a reply now and
// then. The model only computes; ModbusServer keeps the clock and the fd.
#ifndef RV_SIM_LINE_MODEL_H
#define RV_SIM_LINE_MODEL_H

#include <stddef.h>
#include <stdint.h>

#include <random>
#include <string>
#include <vector>

struct LineSettings {
    bool pace = false;     // characters take their wire time
    int baud = 19200;      // line speed, bits per second
    int bitsPerChar = 11;  // 8E1: start, 8 data, parity, stop
    int stopBits = 1;
    // On a pseudo-terminal: a request sent at a speed or stop bits other than
    // baud and stopBits is not understood, as at a controller's receiver.
    bool ownSettingsOnly = false;
    int turnaroundMs = 0;  // controller's think time before each reply
    int jitterMs = 0;      // 0..jitterMs more, drawn for each reply
    int pieceBytes = 0;    // a reply reaches the master in pieces this big; 0: whole
    int pieceGapMs = 0;    // silence between two pieces
};

// A part of a reply handed to the line `atUs` microseconds after the reply
// started: bytes [offset, offset + length).
struct LineChunk {
    size_t offset;
    size_t length;
    long long atUs;
};

// Start bit, 8 data bits, a parity bit unless parity is 'N', stop bits:
// 11 for 8E1, 8O1 and 8N2, 10 for 8N1.
int bitsPerCharacter(char parity, int stopBits);

// Microseconds `bytes` characters take on the line; 0 when not paced.
long long wireTimeUs(const LineSettings &line, size_t bytes);

// When each part of a reply of `length` bytes reaches the master. Paced, a
// part leaves when its last character has been sent, in parts about 1 ms
// apart (single characters at 9600 baud); pieces leave whole, each gap
// adding to the time of every later piece.
std::vector<LineChunk> lineSchedule(const LineSettings &line, size_t length);

// Damages a reply as noise on the line does: one bit of one byte flipped,
// or 1 to 3 stray bytes before or after it, chosen at random. Returns what
// was done, for the request log.
std::string addNoise(std::vector<uint8_t> &bytes, std::mt19937 &rng);

#endif
