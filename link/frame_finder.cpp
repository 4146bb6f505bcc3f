#include "frame_finder.h"

#include <algorithm>

#include "remote_frame.h"
#include "reply_scan.h"
#include "rtu_frame.h"

namespace rvlink {

namespace {

// Stations a request may name: 0 (broadcast) to 247.
const int kLastStation = 247;
// No frame of this line is longer: a remote write of a thousand words is
// not, while bytes that only look like the start of a longer one are not
// waited for.
const std::size_t kLongestFrame = 4096;

bool sameBytes(const std::uint8_t *f, std::size_t n, const Bytes &b)
{
    return n == b.size() && std::equal(b.begin(), b.end(), f);
}

// Whether a whole RTU request asks for what a controller can serve: a
// reply's bytes can close with a good CRC at a request's length too.
bool plausibleRequest(const std::uint8_t *f, std::size_t n)
{
    RtuRequest r;
    if (!parseRequest(f, n, r))
        return false;
    const int most = r.coils() ? 2000 : 125;
    const bool counted = r.function == WriteCoils || r.function == WriteRegisters;
    return r.quantity >= 1 && r.quantity <= most &&
           (!counted ||
            int(r.data.size()) == readDataBytes(r.coils() ? ReadCoils : ReadRegisters, r.quantity));
}

// Whether `n` bytes are one whole remote description of a station.
bool wholeDescription(const std::uint8_t *f, std::size_t n)
{
    RemoteRequest r;
    return parseRemoteRequest(f, n, r) && remoteSumCloses(f, n) && r.station <= kLastStation;
}

}  // namespace

FrameFinder::Fit FrameFinder::fitOf(std::size_t length, std::size_t n,
                                    bool (*closes)(const std::uint8_t *, std::size_t),
                                    const std::uint8_t *f)
{
    if (length == 0 || length > kLongestFrame)
        return Fit::None;
    if (length > n)
        return Fit::Partial;
    return closes(f, length) ? Fit::Whole : Fit::None;
}

const char *frameKindText(BusFrame::Kind kind)
{
    switch (kind) {
    case BusFrame::Request: return "request";
    case BusFrame::Reply: return "reply";
    case BusFrame::Exception: return "exception";
    case BusFrame::BadCrc: return "bad CRC";
    case BusFrame::Cut: return "cut short";
    case BusFrame::Noise: break;
    }
    return "noise";
}

FrameFinder::FrameFinder(const FinderOptions &options) : options_(options) {}

FrameFinder::Candidate FrameFinder::replyAt(std::size_t at) const
{
    Candidate c;
    if (!awaiting_)
        return c;
    const std::uint8_t *f = buf_.data() + at;
    const std::size_t n = buf_.size() - at;
    const Step step = readReply(expect_, f, n, false);
    if (step.verdict == Verdict::Skip)
        return c;
    c.length =
        step.verdict == Verdict::Frame ? std::size_t(step.bytes) : std::size_t(expect_.length);
    if (step.verdict == Verdict::NeedMore) {
        c.fit = Fit::Partial;
        return c;
    }
    c.fit = Fit::Whole;
    const bool good = options_.remoteFrames || !sameBytes(f, c.length, awaited_) ||
                      times_[at] - awaitedEndUs_ <= options_.replyTimeoutUs;
    if (!good)
        return Candidate();  // the write request sent again: not its echo
    c.kind = !crcCloses(f, c.length) ? BusFrame::BadCrc
             : isException(f[1])     ? BusFrame::Exception
                                     : BusFrame::Reply;
    return c;
}

FrameFinder::Candidate FrameFinder::requestAt(std::size_t at) const
{
    Candidate c;
    const std::uint8_t *f = buf_.data() + at;
    const std::size_t n = buf_.size() - at;
    c.kind = BusFrame::Request;
    if (options_.remoteFrames) {
        // Only a read or a write can start a description.
        const int mode = remote::kFields[remote::RwMode].offset;
        if (n > std::size_t(mode) && f[mode] != remote::Read && f[mode] != remote::Write)
            return Candidate();
        c.length = remoteFrameLength(f, n);
        c.fit = fitOf(c.length, n, wholeDescription, f);
        return c;
    }
    if (f[0] > kLastStation)
        return Candidate();
    c.length = requestLength(f, n);
    c.fit = fitOf(c.length, n, plausibleRequest, f);
    return c;
}

FrameFinder::Candidate FrameFinder::strayReplyAt(std::size_t at) const
{
    Candidate c;
    const std::uint8_t *f = buf_.data() + at;
    const std::size_t n = buf_.size() - at;
    if (f[0] == 0 || f[0] > kLastStation)
        return c;  // nobody answers from the broadcast address
    c.length = replyLengthAt(f, n);
    c.fit = fitOf(c.length, n, crcCloses, f);
    c.kind = n >= 2 && isException(f[1]) ? BusFrame::Exception : BusFrame::Reply;
    return c;
}

std::size_t FrameFinder::goodFrameWithin(std::size_t from, std::size_t to) const
{
    for (std::size_t k = from; k < to && k < buf_.size(); ++k) {
        const Candidate reply = replyAt(k);
        if ((reply.fit == Fit::Whole && reply.kind != BusFrame::BadCrc) ||
            requestAt(k).fit == Fit::Whole || strayReplyAt(k).fit == Fit::Whole)
            return k;
    }
    return 0;
}

void FrameFinder::endNoise()
{
    if (noise_.bytes.empty())
        return;
    noise_.kind = BusFrame::Noise;
    noise_.expected = 0;
    out_.push_back(noise_);
    noise_ = BusFrame();
}

void FrameFinder::slideNoise()
{
    if (noise_.bytes.empty())
        noise_.firstUs = times_.front();
    noise_.bytes.push_back(buf_.front());
    noise_.lastUs = times_.front();
    buf_.erase(buf_.begin());
    times_.erase(times_.begin());
}

void FrameFinder::emit(BusFrame::Kind kind, std::size_t length, bool answers, int expected)
{
    endNoise();
    BusFrame f;
    f.kind = kind;
    f.bytes.assign(buf_.begin(), buf_.begin() + long(length));
    f.firstUs = times_.front();
    f.lastUs = times_[length - 1];
    f.expected = expected;
    if (answers) {
        f.request = awaited_;
        awaiting_ = false;
    }
    buf_.erase(buf_.begin(), buf_.begin() + long(length));
    times_.erase(times_.begin(), times_.begin() + long(length));
    if (kind == BusFrame::Request) {
        int replyLength = 0;
        RtuRequest rtu;
        RemoteRequest remote;
        if (options_.remoteFrames && parseRemoteRequest(f.bytes.data(), f.bytes.size(), remote))
            replyLength = remoteReplyLength(remote);
        else if (!options_.remoteFrames && parseRequest(f.bytes.data(), f.bytes.size(), rtu))
            replyLength = replyLengthFor(rtu);
        f.expected = replyLength;
        awaited_ = f.bytes;
        awaitedEndUs_ = f.lastUs;
        awaiting_ = replyLength > 0;
        expect_ = options_.remoteFrames
                      ? expectRemoteReply(f.bytes.data(), f.bytes.size(), replyLength)
                      : expectReply(f.bytes.data(), f.bytes.size(), replyLength);
    }
    out_.push_back(f);
}

// Whole good frames first (the awaited reply before a request, a request
// before a reply nobody awaits); then a reply of the right shape and length
// with a bad CRC, unless a good frame starts inside it, which makes it a
// reply cut short; then wait for more, unless the line has gone silent.
void FrameFinder::scan(bool ended)
{
    while (!buf_.empty()) {
        const Candidate reply = replyAt(0), request = requestAt(0), stray = strayReplyAt(0);
        if (reply.fit == Fit::Whole && reply.kind != BusFrame::BadCrc) {
            emit(reply.kind, reply.length, true, int(reply.length));
            continue;
        }
        if (request.fit == Fit::Whole) {
            emit(BusFrame::Request, request.length, false, 0);
            continue;
        }
        if (stray.fit == Fit::Whole) {
            emit(stray.kind, stray.length, false, int(stray.length));
            continue;
        }
        const bool partial =
            reply.fit == Fit::Partial || request.fit == Fit::Partial || stray.fit == Fit::Partial;
        if (reply.fit == Fit::Whole || partial) {
            const std::size_t inner =
                goodFrameWithin(1, reply.fit == Fit::Whole ? reply.length : buf_.size());
            if (inner > 0 && reply.fit != Fit::None) {
                emit(BusFrame::Cut, inner, true, expect_.length);
                continue;
            }
            if (inner > 0) {
                for (std::size_t i = 0; i < inner; ++i)
                    slideNoise();
                continue;
            }
            if (reply.fit == Fit::Whole) {
                emit(BusFrame::BadCrc, reply.length, true, int(reply.length));
                continue;
            }
            if (!ended)
                return;
            if (reply.fit == Fit::Partial) {
                emit(BusFrame::Cut, buf_.size(), true, expect_.length);
                continue;
            }
        }
        slideNoise();
    }
    if (ended)
        endNoise();
}

void FrameFinder::feed(const std::uint8_t *data, std::size_t n, long long atUs)
{
    if (!data || n == 0)
        return;
    idle(atUs);
    buf_.insert(buf_.end(), data, data + n);
    times_.insert(times_.end(), n, atUs);
    scan(false);
}

void FrameFinder::idle(long long nowUs)
{
    const long long last = !times_.empty() ? times_.back() : noise_.lastUs;
    if ((!buf_.empty() || !noise_.bytes.empty()) && nowUs - last >= options_.silenceUs)
        scan(true);
}

void FrameFinder::finish()
{
    scan(true);
}

std::vector<BusFrame> FrameFinder::take()
{
    std::vector<BusFrame> taken;
    taken.swap(out_);
    return taken;
}

}  // namespace rvlink
