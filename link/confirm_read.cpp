#include "confirm_read.h"

#include <algorithm>

#include "remote_frame.h"
#include "rtu_frame.h"

namespace rvlink {

namespace {

// What a request reads or writes, in units of the read that checks it:
// coils or registers (an RTU frame), elements of a bit or word area (a
// remote description).
struct Target {
    bool valid = false;
    bool coils = false;
    bool write = false;
    long first = 0;           // first unit
    int units = 0;            // units read or written
    std::vector<int> values;  // a write's values, one per unit
    // Building a check read of `units` units from `first`.
    bool remote = false;
    int station = 0;
    RemoteRequest like;
};

const long kAddressSpace = 65536;

std::vector<int> unpackBits(const std::uint8_t *data, int units)
{
    std::vector<int> v(std::size_t(std::max(units, 0)));
    for (int i = 0; i < units; ++i)
        v[std::size_t(i)] = (data[i / 8] >> (i % 8)) & 1;
    return v;
}

std::vector<int> unpackRegisters(const std::uint8_t *data, int units)
{
    std::vector<int> v(std::size_t(std::max(units, 0)));
    for (int i = 0; i < units; ++i)
        v[std::size_t(i)] = int(bigEndian16(data + 2 * i));
    return v;
}

Target rtuTarget(const Bytes &request)
{
    Target t;
    RtuRequest r;
    if (!parseRequest(request.data(), request.size(), r) || r.station == 0)
        return t;
    t.valid = true;
    t.station = r.station;
    t.coils = r.coils();
    t.write = !r.reads();
    t.first = r.address;
    t.units = r.quantity;
    switch (r.function) {
    case WriteCoil: t.values.push_back(r.data[0] == 0xFF ? 1 : 0); break;
    case WriteRegister: t.values.push_back(int(bigEndian16(r.data.data()))); break;
    case WriteCoils:
        t.units = std::min<int>(r.quantity, 8 * int(r.data.size()));
        t.values = unpackBits(r.data.data(), t.units);
        break;
    case WriteRegisters:
        t.units = std::min<int>(r.quantity, int(r.data.size()) / 2);
        t.values = unpackRegisters(r.data.data(), t.units);
        break;
    default: break;
    }
    return t;
}

// A remote description counts bytes of eight elements for a bit area's
// read, and elements for everything else; its write holds one value byte
// per bit (only 1 sets it) or two per word, low byte first.
Target remoteTarget(const Bytes &request)
{
    Target t;
    RemoteRequest r;
    if (!parseRemoteRequest(request.data(), request.size(), r) || r.station == 0 ||
        r.areaType < 0 || r.areaType > 25 || r.address > 0x7FFFFFFF ||
        (r.rwMode != remote::Read && r.rwMode != remote::Write))
        return t;
    t.valid = true;
    t.remote = true;
    t.like = r;
    t.station = r.station;
    t.coils = remoteBitArea(r.areaType);
    t.write = r.rwMode == remote::Write;
    t.first = long(r.address);
    t.units = t.coils && !t.write ? 8 * r.count : r.count;
    for (int i = 0; t.write && i < t.units; ++i) {
        const std::size_t at = std::size_t(t.coils ? i : 2 * i);
        const int low = at < r.values.size() ? r.values[at] : 0;
        const int high = at + 1 < r.values.size() ? r.values[at + 1] : 0;
        t.values.push_back(t.coils ? (low == 1 ? 1 : 0) : (high << 8 | low));
    }
    return t;
}

Target targetOf(const Bytes &request, bool remote)
{
    return remote ? remoteTarget(request) : rtuTarget(request);
}

int step(const Target &t)
{
    return t.coils ? 8 : 1;
}

int maxUnits(const Target &t)
{
    return t.coils ? 2000 : 125;
}

int dataBytes(const Target &t, int units)
{
    return t.coils ? (units + 7) / 8 : 2 * units;
}

CheckRead checkRead(const Target &t, long first, int units)
{
    CheckRead c;
    if (t.remote) {
        const int count = t.coils ? (units + 7) / 8 : units;
        c.request = remoteReadRequest(t.like, unsigned(first), count);
        c.replyLength = 5 + (t.coils ? count : 2 * count);
    } else {
        const int function = t.coils ? ReadCoils : ReadRegisters;
        c.request = readRequest(t.station, function, int(first), units);
        c.replyLength = 5 + readDataBytes(function, units);
    }
    return c;
}

bool busy(const std::vector<int> &shapes, int bytes)
{
    return std::find(shapes.begin(), shapes.end(), bytes & 0xFF) != shapes.end();
}

// Units of a check read's reply, from the unit it starts at.
std::vector<int> unitsOf(const Target &t, const Bytes &reply)
{
    if (reply.size() < 5 || isException(reply[1]))
        return std::vector<int>();
    const int bytes = reply[2];
    if (std::size_t(bytes) + 5 != reply.size())
        return std::vector<int>();
    return t.coils ? unpackBits(reply.data() + 3, 8 * bytes)
                   : unpackRegisters(reply.data() + 3, bytes / 2);
}

}  // namespace

Confirmation planConfirmation(const Bytes &request, bool remote, const std::vector<int> &busyShapes,
                              int attempt)
{
    Confirmation c;
    const Target t = targetOf(request, remote);
    if (!t.valid || t.units < 1)
        return c;
    const int unit = step(t);
    // A doubtful read is checked by one of another shape; a write by the
    // elements it wrote, in a shape of their own where one is free.
    const int from = t.write ? 0 : 1;
    const long top = t.remote ? 0x7FFFFFFFL : kAddressSpace;
    if (attempt < 2) {
        int chosen = -1;
        for (int k = from; t.units + k * unit <= maxUnits(t); ++k) {
            const int units = t.units + k * unit;
            const bool back = attempt == 1 || t.first + units > top;
            if (back && t.first - k * unit < 0)
                continue;
            if (chosen < 0)
                chosen = k;  // the first that fits, should all be busy
            if (!busy(busyShapes, dataBytes(t, units))) {
                chosen = k;
                break;
            }
        }
        if (chosen >= 0) {
            const int units = t.units + chosen * unit;
            const bool back = attempt == 1 || t.first + units > top;
            c.reads.push_back(checkRead(t, back ? t.first - chosen * unit : t.first, units));
            return c;
        }
    }
    // Two overlapping reads of one step fewer: neither has the reply's shape.
    const int units = t.units - (t.write ? 0 : unit);
    if (units < 1 || units > maxUnits(t))
        return c;
    c.reads.push_back(checkRead(t, t.first, units));
    if (!t.write)
        c.reads.push_back(checkRead(t, t.first + unit, units));
    return c;
}

bool confirms(const Bytes &request, const Bytes &reply, bool remote, const Confirmation &c,
              const std::vector<Bytes> &checkReplies)
{
    const Target t = targetOf(request, remote);
    if (!t.valid || c.reads.empty() || checkReplies.size() != c.reads.size())
        return false;
    std::vector<int> want = t.values;
    if (!t.write) {
        want = unitsOf(t, reply);
        if (want.size() < std::size_t(t.units))
            return false;
        want.resize(std::size_t(t.units));
    }
    // Every unit of the target must be held by some check read, and agree.
    std::vector<bool> seen(want.size(), false);
    for (std::size_t i = 0; i < c.reads.size(); ++i) {
        const Target read = targetOf(c.reads[i].request, remote);
        const std::vector<int> got = unitsOf(t, checkReplies[i]);
        if (!read.valid || got.size() < std::size_t(read.units))
            return false;
        for (int u = 0; u < read.units; ++u) {
            const long at = read.first + u - t.first;
            if (at < 0 || at >= long(want.size()))
                continue;
            if (got[std::size_t(u)] != want[std::size_t(at)])
                return false;
            seen[std::size_t(at)] = true;
        }
    }
    return std::find(seen.begin(), seen.end(), false) == seen.end();
}

bool confirmationShape(const Bytes &request, bool remote, int &station, int &function)
{
    const Target t = targetOf(request, remote);
    station = t.station;
    function = t.coils ? ReadCoils : ReadRegisters;
    return t.valid;
}

}  // namespace rvlink
