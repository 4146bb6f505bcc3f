#include "controller.h"

#include "harness.h"
#include "link/remote_frame.h"
#include "link/reply_reader.h"

namespace {

void closeReply(QByteArray &r)
{
    const unsigned short crc =
        crc16(reinterpret_cast<const unsigned char *>(r.constData()), r.size());
    r.append(char(crc & 0xFF));
    r.append(char(crc >> 8));
}

// What a frame asks for, read off its bytes.
struct Request {
    bool valid = false;  // well formed and checksummed
    int station = 0;
    int function = 0;  // the function the reply carries
    bool write = false;
    int dataBytes = 0;                     // reads: data bytes the reply carries
    unsigned char echo[4] = {0, 0, 0, 0};  // writes: bytes 2..5 of the reply
    bool refused = false;
};

int be16(const unsigned char *f)
{
    return (f[0] << 8) | f[1];
}

Request parseLocal(const unsigned char *f, int n)
{
    Request r;
    if (n < 8 || crc16(f, n - 2) != (f[n - 2] | (f[n - 1] << 8)))
        return r;
    r.valid = true;
    r.station = f[0];
    r.function = f[1];
    const int address = be16(f + 2), quantity = be16(f + 4);
    for (int i = 0; i < 4; ++i)
        r.echo[i] = f[2 + i];
    switch (r.function) {
    case 0x01:
        r.dataBytes = (quantity + 7) / 8;
        r.refused = quantity < 1 || quantity > 2000 || address + quantity > 65536;
        break;
    case 0x03:
        r.dataBytes = 2 * quantity;
        r.refused = quantity < 1 || quantity > 125 || address + quantity > 65536;
        break;
    case 0x05:
        r.write = true;
        r.refused = n != 8 || f[5] != 0 || (f[4] != 0 && f[4] != 0xFF);
        break;
    case 0x06:
        r.write = true;
        r.refused = n != 8;
        break;
    case 0x10:
        r.write = true;
        r.refused = quantity < 1 || quantity > 123 || f[6] != 2 * quantity ||
                    n != 9 + 2 * quantity || address + quantity > 65536;
        break;
    default: r.refused = true; break;
    }
    return r;
}

// The far end of a remote link answers as the controller would answer the
// register frame the request describes.
Request parseRemote(const unsigned char *f, int n)
{
    Request r;
    rvlink::RemoteRequest d;
    if (!rvlink::parseRemoteRequest(f, size_t(n), d) || !rvlink::remoteSumCloses(f, size_t(n)))
        return r;
    r.valid = true;
    r.station = d.station;
    const bool bits = rvlink::remoteBitArea(d.areaType);
    r.write = d.rwMode == rvlink::remote::Write;
    r.function = r.write ? 0x10 : (bits ? 0x01 : 0x03);
    // The echo of the register frame: the low half of the element address
    // and the count, as the description carries them.
    r.echo[0] = (unsigned char)(d.address >> 8);
    r.echo[1] = (unsigned char)d.address;
    r.echo[2] = (unsigned char)(d.count >> 8);
    r.echo[3] = (unsigned char)d.count;
    r.dataBytes = bits ? d.count : 2 * d.count;
    r.refused = d.rwMode > 1 || (!r.write && (d.count < 1 || r.dataBytes > 250));
    return r;
}

Request parse(const Protocol &p, bool remote)
{
    const int n = p.sendLength < p.frame.size() ? p.sendLength : p.frame.size();
    const unsigned char *f = reinterpret_cast<const unsigned char *>(p.frame.constData());
    return remote ? parseRemote(f, n) : parseLocal(f, n);
}

}  // namespace

Answer controllerAnswer(const Protocol &p, bool remote, const QByteArray &fill)
{
    Answer a;
    a.landed = false;
    const Request r = parse(p, remote);
    if (!r.valid)
        return a;
    a.landed = r.write && !r.refused;
    if (r.station == 0)
        return a;  // a broadcast is carried out in silence
    QByteArray &out = a.reply;
    out.reserve(r.write ? 8 : r.dataBytes + 5);
    out.append(char(r.station));
    if (r.refused) {
        out.append(char(r.function | 0x80));
        out.append(char(0x03));  // illegal data value
    } else if (r.write) {
        out.append(char(r.function));
        out.append(reinterpret_cast<const char *>(r.echo), 4);
    } else {
        out.append(char(r.function));
        out.append(char(r.dataBytes));
        for (int i = 0; i < r.dataBytes; ++i)
            out.append(fill.isEmpty() ? char(i * 37) : fill.at(i % fill.size()));
    }
    closeReply(out);
    return a;
}

bool screenReply(const QByteArray &got, const Protocol &p, bool remote)
{
    // The link's reader, as a runtime reads: a whole reply, or the start of
    // one that was cut short; bytes it would skip are not handed on.
    const int n = p.sendLength < p.frame.size() ? p.sendLength : p.frame.size();
    const unsigned char *f = reinterpret_cast<const unsigned char *>(p.frame.constData());
    const rvlink::Expectation e = remote ? rvlink::expectRemoteReply(f, size_t(n), p.replyLength)
                                         : rvlink::expectReply(f, size_t(n), p.replyLength);
    const rvlink::Step s = rvlink::readReply(
        e, reinterpret_cast<const unsigned char *>(got.constData()), size_t(got.size()), false);
    return !got.isEmpty() && (s.verdict == rvlink::Verdict::NeedMore ||
                              (s.verdict == rvlink::Verdict::Frame && s.bytes == got.size()));
}
