#include "fd_write.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rvlink {

bool writeAll(int fd, const std::uint8_t *data, std::size_t n, int waitMs)
{
    std::size_t done = 0;
    while (done < n) {
        ssize_t w = send(fd, data + done, n - done, MSG_NOSIGNAL);
        if (w < 0 && errno == ENOTSOCK)
            w = write(fd, data + done, n - done);
        if (w > 0) {
            done += std::size_t(w);
            continue;
        }
        if (w < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        pollfd p = {fd, POLLOUT, 0};
        if (poll(&p, 1, waitMs) <= 0)
            return false;
    }
    return true;
}

}  // namespace rvlink
