// Whole replies in bytes that no request was waiting for (stray bytes, a
// late reply, what came after a reply): read replies by their byte count,
// exception replies and write echoes, each closed by a good CRC. A copy of
// one of them later is then known for what it is.
#ifndef RV_LINK_REPLY_SCAN_H
#define RV_LINK_REPLY_SCAN_H

#include <vector>

#include "bytes.h"

namespace rvlink {

std::vector<Bytes> findReplies(const std::uint8_t *data, std::size_t n);

// The length of the reply whose first `n` bytes are at `f`, by its shape (a
// read's byte count, an exception, a write's echo): more than `n` while it
// is incomplete, 0 when they start no reply.
std::size_t replyLengthAt(const std::uint8_t *f, std::size_t n);

}  // namespace rvlink

#endif
