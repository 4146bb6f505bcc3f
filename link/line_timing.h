// How long characters take on a serial line: the one formula behind the
// poller's silences between frames, the simulator's pacing and the scan's
// timeouts.
#ifndef RV_LINK_LINE_TIMING_H
#define RV_LINK_LINE_TIMING_H

#include <cstddef>

namespace rvlink {

struct LineFormat {
    int baud = 19200;
    int dataBits = 8;
    char parity = 'E';  // 'N', 'E' or 'O'
    int stopBits = 1;
};

// Start bit, data bits, a parity bit unless 'N', stop bits: 11 for 8E1.
int bitsPerCharacter(const LineFormat &f);

// Microseconds `bytes` characters take on the line, rounded down; 0 at no
// baud rate.
long long wireTimeUs(const LineFormat &f, std::size_t bytes);

// The silence that separates two frames: 3.5 characters, rounded up, and a
// fixed 1750 us above 19200 baud, where Modbus sets it.
long long frameGapUs(const LineFormat &f);

// "9600 8E1".
const char *formatName(const LineFormat &f, char (&buf)[32]);

}  // namespace rvlink

#endif
