// Writing a whole buffer to a file descriptor that may take it in parts: a
// serial device or a socket.
#ifndef RV_LINK_FD_WRITE_H
#define RV_LINK_FD_WRITE_H

#include <cstddef>
#include <cstdint>

namespace rvlink {

// Writes all `n` bytes to `fd`, waiting up to `waitMs` whenever it is full;
// false when it failed. On a socket a far end that closed is a failure,
// never a SIGPIPE.
bool writeAll(int fd, const std::uint8_t *data, std::size_t n, int waitMs);

}  // namespace rvlink

#endif
