// What a line carries, for whoever records it (a capture): each frame sent
// and each piece received, in order, timed by the bus clock.
#ifndef RV_LINK_LINE_TAP_H
#define RV_LINK_LINE_TAP_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace rvlink {

// Microseconds since the epoch, moving with the steady clock from the
// first call on: captures are dated, and a wall clock step never
// reorders their frames.
inline long long busClockUs()
{
    using namespace std::chrono;
    static const system_clock::time_point wall = system_clock::now();
    static const steady_clock::time_point steady = steady_clock::now();
    return duration_cast<microseconds>(wall.time_since_epoch()).count() +
           duration_cast<microseconds>(steady_clock::now() - steady).count();
}

class LineTap {
public:
    virtual ~LineTap() {}
    // A frame put on the line; `atUs` when its first byte left.
    virtual void sent(const std::uint8_t *data, std::size_t n, long long atUs) = 0;
    // A piece read off the line, `atUs` when it was read.
    virtual void received(const std::uint8_t *data, std::size_t n, long long atUs) = 0;
};

}  // namespace rvlink

#endif
