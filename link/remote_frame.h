// A remote link's request descriptions as a reader meets them on the line:
// where one ends (its length byte, which keeps only the low 8 bits, and the
// sum that closes it), what it says, and the reply it calls for, which is
// the controller's reply to the register frame it stands for.
#ifndef RV_LINK_REMOTE_FRAME_H
#define RV_LINK_REMOTE_FRAME_H

#include "bytes.h"
#include "remote_layout.h"

namespace rvlink {

struct RemoteRequest {
    int length = 0;  // the length byte as sent
    int ownerType = 0, rwMode = 0, linkNo = 0, station = 0, areaType = 0, count = 0;
    unsigned address = 0;  // all 32 bits, untranslated
    unsigned spare1 = 0, spare2 = 0;
    Bytes values;  // a write's value bytes
    int sum = 0;   // the closing byte
};

// The low 8 bits of the byte sum of `n` bytes: the driver's own sum.
unsigned remoteSum(const std::uint8_t *data, std::size_t n);

// Bytes the description starting with the `n` bytes at `f` takes. Its
// length byte may have wrapped (past 233 value bytes): the lengths it can
// stand for are tried in turn until the sum closes the frame, within what
// the count allows a write. More than `n` while incomplete.
std::size_t remoteFrameLength(const std::uint8_t *f, std::size_t n);

// The fields of `n` bytes of one whole description (header, value bytes,
// sum); false when fewer than a read's 22. The sum is not checked.
bool parseRemoteRequest(const std::uint8_t *f, std::size_t n, RemoteRequest &out);

// Whether the last of `n` bytes is the sum of the others.
bool remoteSumCloses(const std::uint8_t *f, std::size_t n);

// Whether the area type is one of the controller's bit areas (0 to 13);
// every other type is answered in the word shape.
inline bool remoteBitArea(int areaType)
{
    return areaType >= 0 && areaType <= 13;
}

// The reply a description calls for, as the register frame it stands for
// is answered: 5 + the bytes of a bit area (count bytes) or of a word area
// (2 x count) for a read, 8 for a write; 0 for station 0.
int remoteReplyLength(const RemoteRequest &r);

// A read description of `count` units from `address` of `areaType`,
// closed by its sum; owner, link and spares as given.
Bytes remoteReadRequest(const RemoteRequest &like, unsigned address, int count);

}  // namespace rvlink

#endif
