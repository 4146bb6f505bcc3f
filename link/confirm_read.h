// Confirming a doubtful reply by a read whose answer cannot be a copy of
// it. A copy has the shape of the reply it copies, so the confirming read
// asks for another number of units: one register (or eight coils) more
// than the doubtful read, the range moved back when it would pass the top
// of the address space, or two reads of one unit fewer when no longer read
// is allowed; for a write, the written elements themselves. The read's
// answer must then agree with the doubtful reply on every unit both hold,
// or hold the values a write sent.
#ifndef RV_LINK_CONFIRM_READ_H
#define RV_LINK_CONFIRM_READ_H

#include <vector>

#include "bytes.h"

namespace rvlink {

struct CheckRead {
    Bytes request;    // a whole frame, closed by its CRC or sum
    int replyLength;  // the reply it calls for
};

struct Confirmation {
    std::vector<CheckRead> reads;  // none when the request cannot be confirmed
};

// The reads that confirm `reply` to `request` (an RTU frame, or a remote
// link's description when `remote`), avoiding replies of the byte counts
// in `busyShapes` where it can. `attempt` 0, 1 and 2 ask in different ways
// (forward, backward, in two parts), for a controller that refused one.
Confirmation planConfirmation(const Bytes &request, bool remote, const std::vector<int> &busyShapes,
                              int attempt);

// Whether the replies to the confirmation's reads (in order, each a whole
// checked frame) agree with `reply` to `request`.
bool confirms(const Bytes &request, const Bytes &reply, bool remote, const Confirmation &c,
              const std::vector<Bytes> &checkReplies);

// The station and function of the confirmation's reads, for shapes.
bool confirmationShape(const Bytes &request, bool remote, int &station, int &function);

}  // namespace rvlink

#endif
