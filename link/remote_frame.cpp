#include "remote_frame.h"

#include "driver/checksum.h"

namespace rvlink {

namespace {

const std::size_t kLengthWrap = 256;  // the length byte's range

unsigned fieldAt(const std::uint8_t *f, remote::Field field)
{
    const remote::FieldSpot spot = remote::kFields[field];
    unsigned v = 0;
    for (int i = 0; i < spot.width; ++i)
        v = v << 8 | f[spot.offset + i];
    return v;
}

void putField(Bytes &frame, remote::Field field, unsigned v)
{
    const remote::FieldSpot spot = remote::kFields[field];
    for (int i = 0; i < spot.width; ++i)
        frame[std::size_t(spot.offset + i)] = std::uint8_t(v >> (8 * (spot.width - 1 - i)));
}

// The longest the frame can be: a write carries at most two value bytes for
// each element it counts, a read none.
std::size_t longest(const std::uint8_t *f, std::size_t n)
{
    const remote::FieldSpot count = remote::kFields[remote::Count];
    if (n < std::size_t(count.offset + count.width) ||
        f[remote::kFields[remote::RwMode].offset] != remote::Write)
        return remote::kReadFrameBytes;
    return remote::kReadFrameBytes + 2 * std::size_t(fieldAt(f, remote::Count));
}

}  // namespace

unsigned remoteSum(const std::uint8_t *data, std::size_t n)
{
    unsigned sum = 0;
    // The driver's sum takes a 16-bit count: longer runs are summed in pieces.
    for (std::size_t at = 0; at < n; at += 0xFFFF) {
        const std::size_t piece = n - at < 0xFFFF ? n - at : 0xFFFF;
        sum += unsigned(
            CalSUM(const_cast<std::uint8_t *>(data + at), static_cast<unsigned short>(piece)));
    }
    return sum & 0xFF;
}

std::size_t remoteFrameLength(const std::uint8_t *f, std::size_t n)
{
    if (n < 1)
        return remote::kReadFrameBytes;
    std::size_t length = f[0];
    while (length < std::size_t(remote::kReadFrameBytes))
        length += kLengthWrap;
    unsigned sum = 0;
    std::size_t summed = 0;
    while (n >= length) {
        for (; summed + 1 < length; ++summed)
            sum += f[summed];
        if ((sum & 0xFF) == f[length - 1] || length + kLengthWrap > longest(f, n))
            break;
        length += kLengthWrap;
    }
    return length;
}

bool parseRemoteRequest(const std::uint8_t *f, std::size_t n, RemoteRequest &out)
{
    if (!f || n < std::size_t(remote::kReadFrameBytes))
        return false;
    out.length = int(fieldAt(f, remote::Length));
    out.ownerType = int(fieldAt(f, remote::OwnerType));
    out.rwMode = int(fieldAt(f, remote::RwMode));
    out.linkNo = int(fieldAt(f, remote::LinkNo));
    out.station = int(fieldAt(f, remote::Station));
    out.areaType = int(fieldAt(f, remote::AreaType));
    out.address = fieldAt(f, remote::Address);
    out.count = int(fieldAt(f, remote::Count));
    out.spare1 = fieldAt(f, remote::Spare1);
    out.spare2 = fieldAt(f, remote::Spare2);
    out.values.assign(f + remote::kHeaderBytes, f + n - 1);
    out.sum = f[n - 1];
    return true;
}

bool remoteSumCloses(const std::uint8_t *f, std::size_t n)
{
    return f && n >= 1 && remoteSum(f, n - 1) == f[n - 1];
}

int remoteReplyLength(const RemoteRequest &r)
{
    if (r.station == 0)
        return 0;
    if (r.rwMode == remote::Write)
        return 8;
    return 5 + (remoteBitArea(r.areaType) ? r.count : 2 * r.count);
}

Bytes remoteReadRequest(const RemoteRequest &like, unsigned address, int count)
{
    Bytes f(std::size_t(remote::kHeaderBytes), 0);
    putField(f, remote::Length, unsigned(remote::kReadFrameBytes));
    putField(f, remote::OwnerType, unsigned(like.ownerType));
    putField(f, remote::RwMode, remote::Read);
    putField(f, remote::LinkNo, unsigned(like.linkNo));
    putField(f, remote::Station, unsigned(like.station));
    putField(f, remote::AreaType, unsigned(like.areaType));
    putField(f, remote::Address, address);
    putField(f, remote::Count, unsigned(count));
    putField(f, remote::Spare1, like.spare1);
    putField(f, remote::Spare2, like.spare2);
    f.push_back(std::uint8_t(remoteSum(f.data(), f.size())));
    return f;
}

}  // namespace rvlink
