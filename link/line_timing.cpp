#include "line_timing.h"

#include <cstdio>

namespace rvlink {

int bitsPerCharacter(const LineFormat &f)
{
    return 1 + f.dataBits + (f.parity == 'N' ? 0 : 1) + f.stopBits;
}

long long wireTimeUs(const LineFormat &f, std::size_t bytes)
{
    if (f.baud <= 0)
        return 0;
    return static_cast<long long>(bytes) * bitsPerCharacter(f) * 1000000LL / f.baud;
}

long long frameGapUs(const LineFormat &f)
{
    if (f.baud <= 0 || f.baud > 19200)
        return 1750;
    // 3.5 characters: 7 half-characters, rounded up.
    const long long halves = 7LL * bitsPerCharacter(f) * 1000000LL;
    return (halves + 2LL * f.baud - 1) / (2LL * f.baud);
}

const char *formatName(const LineFormat &f, char (&buf)[32])
{
    std::snprintf(buf, sizeof buf, "%d %d%c%d", f.baud, f.dataBits, f.parity, f.stopBits);
    return buf;
}

}  // namespace rvlink
