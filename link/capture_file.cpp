#include "capture_file.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>

namespace rvlink {

namespace {

// pcapng block types and the options used here.
const std::uint32_t kSectionHeader = 0x0A0D0D0A, kInterface = 1, kEnhancedPacket = 6;
const std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
const std::uint16_t kOptEnd = 0, kOptComment = 1, kOptFlags = 2, kOptTsResolution = 9;
// Packet flags: direction (inbound 1, outbound 2) and link-layer errors.
const std::uint32_t kInbound = 1, kOutbound = 2, kCrcError = 1u << 24, kTooShort = 1u << 26;
// The comment's closing words: when the last byte came after the first.
const char kLastByte[] = "; last byte +";

void put32(Bytes &b, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.push_back(std::uint8_t(v >> (8 * i)));
}

void put16(Bytes &b, std::uint16_t v)
{
    b.push_back(std::uint8_t(v));
    b.push_back(std::uint8_t(v >> 8));
}

void padTo4(Bytes &b)
{
    while (b.size() % 4)
        b.push_back(0);
}

void putOption(Bytes &b, std::uint16_t code, const void *value, std::size_t n)
{
    put16(b, code);
    put16(b, std::uint16_t(n));
    const std::uint8_t *p = static_cast<const std::uint8_t *>(value);
    b.insert(b.end(), p, p + n);
    padTo4(b);
}

// A block: type, total length, body, total length again (little-endian,
// as the section header's byte-order magic says).
Bytes block(std::uint32_t type, const Bytes &body)
{
    Bytes b;
    put32(b, type);
    put32(b, std::uint32_t(body.size() + 12));
    b.insert(b.end(), body.begin(), body.end());
    put32(b, std::uint32_t(body.size() + 12));
    return b;
}

std::string commentOf(const BusFrame &f)
{
    std::string text = frameKindText(f.kind);
    if (f.kind == BusFrame::Cut)
        text +=
            " (" + std::to_string(f.bytes.size()) + " of " + std::to_string(f.expected) + " bytes)";
    if ((f.kind == BusFrame::Reply || f.kind == BusFrame::Exception) && f.request.empty())
        text += ", no request awaited it";
    return text + kLastByte + std::to_string(f.lastUs - f.firstUs) + " us";
}

std::uint32_t flagsOf(const BusFrame &f)
{
    switch (f.kind) {
    case BusFrame::Request: return kOutbound;
    case BusFrame::BadCrc: return kInbound | kCrcError;
    case BusFrame::Cut: return kInbound | kTooShort;
    case BusFrame::Noise: return 0;
    default: return kInbound;
    }
}

// Reads fields of a file of either byte order, never past its end.
struct Reader {
    const Bytes &data;
    bool swap = false;
    bool has(std::size_t at, std::size_t n) const
    {
        return at <= data.size() && n <= data.size() - at;
    }
    std::uint32_t u32(std::size_t at) const
    {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v |= std::uint32_t(data[at + std::size_t(swap ? 3 - i : i)]) << (8 * i);
        return v;
    }
    std::uint16_t u16(std::size_t at) const
    {
        return std::uint16_t(swap ? data[at] << 8 | data[at + 1] : data[at + 1] << 8 | data[at]);
    }
};

// Units of a second in a timestamp: 10^6 unless an interface says otherwise.
bool tsDivisor(std::uint8_t resolution, long long &perSecond)
{
    if (resolution & 0x80 || resolution > 9)
        return false;
    perSecond = 1;
    for (int i = 0; i < resolution; ++i)
        perSecond *= 10;
    return true;
}

long long toMicroseconds(unsigned long long t, long long perSecond)
{
    return perSecond >= 1000000 ? (long long)(t / (unsigned long long)(perSecond / 1000000))
                                : (long long)t * (1000000 / perSecond);
}

// The last byte's time from a comment written here; the first's otherwise.
long long lastByteUs(const std::string &comment, long long firstUs)
{
    const std::size_t at = comment.rfind(kLastByte);
    return at == std::string::npos ? firstUs
                                   : firstUs + atoll(comment.c_str() + at + sizeof kLastByte - 1);
}

bool readPcapng(Reader &r, std::vector<CapturedFrame> &out, std::string &error)
{
    long long perSecond = 1000000;
    std::vector<long long> interfaces;  // ticks per second of each interface
    std::size_t at = 0;
    while (at < r.data.size()) {
        if (!r.has(at, 12))
            return (error = "ends inside a block"), false;
        if (r.u32(at) == kSectionHeader) {
            if (!r.has(at, 12))
                return (error = "ends inside a section header"), false;
            r.swap = false;
            if (r.u32(at + 8) != kByteOrderMagic)
                r.swap = true;
            if (r.u32(at + 8) != kByteOrderMagic)
                return (error = "a section header without its byte-order magic"), false;
            interfaces.clear();
        }
        const std::uint32_t type = r.u32(at), length = r.u32(at + 4);
        if (length < 12 || length % 4 || !r.has(at, length))
            return (error = "a block of a bad length"), false;
        const std::size_t body = at + 8, end = at + length - 4;
        std::size_t options = end;
        if (type == kInterface) {
            if (end - body < 8)
                return (error = "a short interface block"), false;
            if (r.u16(body) != kCaptureLinkType)
                return (error = "link type " + std::to_string(r.u16(body)) +
                                " is not Modbus RTU (" + std::to_string(kCaptureLinkType) + ")"),
                       false;
            perSecond = 1000000;
            options = body + 8;
        } else if (type == kEnhancedPacket) {
            if (end - body < 20)
                return (error = "a short packet block"), false;
            const std::uint32_t iface = r.u32(body), captured = r.u32(body + 12);
            if (iface >= interfaces.size() || captured > end - body - 20)
                return (error = "a packet of no interface, or longer than its block"), false;
            CapturedFrame f;
            const unsigned long long ticks =
                (unsigned long long)r.u32(body + 4) << 32 | r.u32(body + 8);
            f.firstUs = toMicroseconds(ticks, interfaces[iface]);
            f.bytes.assign(r.data.begin() + long(body + 20),
                           r.data.begin() + long(body + 20 + captured));
            f.lastUs = f.firstUs;
            options = body + 20 + (captured + 3) / 4 * 4;
            out.push_back(f);
        }
        // Options: the interface's time resolution, the packet's comment.
        while (options + 4 <= end) {
            const std::uint16_t code = r.u16(options), n = r.u16(options + 2);
            if (code == kOptEnd || options + 4 + n > end)
                break;
            if (type == kInterface && code == kOptTsResolution && n >= 1 &&
                !tsDivisor(r.data[options + 4], perSecond))
                return (error = "a time resolution other than a power of ten"), false;
            if (type == kEnhancedPacket && code == kOptComment)
                out.back().lastUs = lastByteUs(std::string(r.data.begin() + long(options + 4),
                                                           r.data.begin() + long(options + 4 + n)),
                                               out.back().firstUs);
            options += 4 + (n + 3u) / 4 * 4;
        }
        if (type == kInterface)
            interfaces.push_back(perSecond);
        at += length;
    }
    return true;
}

bool readPcap(Reader &r, long long perSecond, std::vector<CapturedFrame> &out, std::string &error)
{
    if (!r.has(0, 24) || r.u32(20) != kCaptureLinkType)
        return (error = "not a capture of link type " + std::to_string(kCaptureLinkType) +
                        " (Modbus RTU)"),
               false;
    for (std::size_t at = 24; at < r.data.size();) {
        if (!r.has(at, 16) || !r.has(at + 16, r.u32(at + 8)))
            return (error = "ends inside a packet"), false;
        CapturedFrame f;
        f.firstUs = (long long)r.u32(at) * 1000000 + toMicroseconds(r.u32(at + 4), perSecond);
        f.lastUs = f.firstUs;
        f.bytes.assign(r.data.begin() + long(at + 16),
                       r.data.begin() + long(at + 16 + r.u32(at + 8)));
        out.push_back(f);
        at += 16 + r.u32(at + 8);
    }
    return true;
}

}  // namespace

bool CaptureWriter::open(const std::string &path, std::string &error)
{
    close();
    file_ = fopen(path.c_str(), "wb");
    if (!file_) {
        error = "cannot create " + path + ": " + strerror(errno);
        return false;
    }
    Bytes section, interface;
    put32(section, kByteOrderMagic);
    put16(section, 1);  // version 1.0
    put16(section, 0);
    put32(section, 0xFFFFFFFF);  // section length not given
    put32(section, 0xFFFFFFFF);
    put16(interface, std::uint16_t(kCaptureLinkType));
    put16(interface, 0);
    put32(interface, 0);  // no snapshot limit
    const std::uint8_t microseconds = 6;
    putOption(interface, kOptTsResolution, &microseconds, 1);
    putOption(interface, kOptEnd, nullptr, 0);
    const Bytes head = block(kSectionHeader, section), iface = block(kInterface, interface);
    Bytes both = head;
    both.insert(both.end(), iface.begin(), iface.end());
    if (fwrite(both.data(), 1, both.size(), file_) != both.size() || fflush(file_) != 0) {
        error = "cannot write " + path + ": " + strerror(errno);
        close();
        return false;
    }
    return true;
}

bool CaptureWriter::write(const BusFrame &frame)
{
    if (!file_)
        return false;
    Bytes body;
    put32(body, 0);  // interface 0
    const unsigned long long t = (unsigned long long)frame.firstUs;
    put32(body, std::uint32_t(t >> 32));
    put32(body, std::uint32_t(t));
    put32(body, std::uint32_t(frame.bytes.size()));
    put32(body, std::uint32_t(frame.bytes.size()));
    body.insert(body.end(), frame.bytes.begin(), frame.bytes.end());
    padTo4(body);
    const std::string comment = commentOf(frame);
    putOption(body, kOptComment, comment.data(), comment.size());
    std::uint8_t flags[4];
    for (int i = 0; i < 4; ++i)
        flags[i] = std::uint8_t(flagsOf(frame) >> (8 * i));
    putOption(body, kOptFlags, flags, 4);
    putOption(body, kOptEnd, nullptr, 0);
    const Bytes b = block(kEnhancedPacket, body);
    return fwrite(b.data(), 1, b.size(), file_) == b.size() && fflush(file_) == 0;
}

void CaptureWriter::close()
{
    if (file_)
        fclose(file_);
    file_ = nullptr;
}

bool readCapture(const std::string &path, std::vector<CapturedFrame> &out, std::string &error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    const Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Reader r{data};
    out.clear();
    bool ok = false;
    if (r.has(0, 4) && r.u32(0) == kSectionHeader) {
        ok = readPcapng(r, out, error);
    } else if (r.has(0, 4)) {
        // A classic pcap file: microseconds or nanoseconds, either byte order.
        const std::uint32_t magic = r.u32(0);
        const bool micro = magic == 0xA1B2C3D4 || magic == 0xD4C3B2A1;
        r.swap = magic == 0xD4C3B2A1 || magic == 0x4D3CB2A1;
        if (micro || magic == 0xA1B23C4D || magic == 0x4D3CB2A1)
            ok = readPcap(r, micro ? 1000000 : 1000000000, out, error);
        else
            error = "neither a pcapng nor a pcap file";
    } else {
        error = "empty";
    }
    if (!ok)
        error = path + ": " + error;
    return ok;
}

}  // namespace rvlink
