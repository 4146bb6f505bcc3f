// Frames in one byte stream that carries both directions of a line, as a
// listener on the bus hears it. They are found by their structure and CRC,
// never by a silence alone, since adapters hand frames over in pieces with
// pauses far longer than 3.5 characters:
// - a request's length follows from its function (and a 0x0F/0x10 byte
//   count), or from a remote link's length byte;
// - a reply's from the request it answers (reply_reader.h), and a reply no
//   request waits for from its own shape (reply_scan.h);
// - a CRC (or a remote description's sum) closing at that length confirms
//   both, and bytes that start no frame are slid past one at a time.
// A silence only ends what has started and cannot be completed: a reply
// cut short, or bytes that were waiting to become a frame. No I/O and no
// clock: bytes come with the time they arrived.
#ifndef RV_LINK_FRAME_FINDER_H
#define RV_LINK_FRAME_FINDER_H

#include <vector>

#include "bytes.h"
#include "reply_reader.h"

namespace rvlink {

struct BusFrame {
    enum Kind {
        Request,    // a master's request, or a remote link's description
        Reply,      // a whole reply with a good CRC
        Exception,  // a whole exception reply with a good CRC
        BadCrc,     // a reply's shape and length, and a CRC that does not close
        Cut,        // the start of the awaited reply, which stopped short
        Noise       // bytes that start no frame
    };
    Kind kind = Noise;
    Bytes bytes;
    long long firstUs = 0;  // when its first byte arrived
    long long lastUs = 0;   // when its last byte arrived
    // Reply, Exception, BadCrc, Cut: the request it answers; empty for a
    // whole reply no request was waiting for (late, repeated, another's).
    Bytes request;
    // Request: the length of the reply it calls for (0 for a broadcast);
    // the others: the length the frame needed.
    int expected = 0;
};

// "request", "reply", "exception", "bad CRC", "cut short", "noise".
const char *frameKindText(BusFrame::Kind kind);

struct FinderOptions {
    bool remoteFrames = false;  // requests are a remote link's descriptions
    // The master's wait for a reply to start: a frame byte for byte equal
    // to a write request (0x05, 0x06: the echo looks the same) that comes
    // later is the request sent again, not its echo.
    long long replyTimeoutUs = 500000;
    // A silence this long ends what has started.
    long long silenceUs = 500000;
};

class FrameFinder {
public:
    explicit FrameFinder(const FinderOptions &options = FinderOptions());

    // `n` bytes that arrived at `atUs` (times never go back).
    void feed(const std::uint8_t *data, std::size_t n, long long atUs);
    // Nothing more came until `nowUs`: a long enough silence ends what waits.
    void idle(long long nowUs);
    // The end of the stream: whatever is held comes out.
    void finish();
    // The frames found so far, in line order, taken out.
    std::vector<BusFrame> take();

private:
    enum class Fit { None, Partial, Whole };
    struct Candidate {
        Fit fit = Fit::None;
        std::size_t length = 0;
        BusFrame::Kind kind = BusFrame::Noise;
    };

    // A frame of `length` bytes of which `n` have come: whole once all
    // have and `closes` them; 0 is no frame.
    static Fit fitOf(std::size_t length, std::size_t n,
                     bool (*closes)(const std::uint8_t *, std::size_t), const std::uint8_t *f);
    Candidate replyAt(std::size_t at) const;
    Candidate requestAt(std::size_t at) const;
    Candidate strayReplyAt(std::size_t at) const;
    // The first offset in [from, to) where a whole good frame starts; 0 for none.
    std::size_t goodFrameWithin(std::size_t from, std::size_t to) const;
    void scan(bool ended);
    void emit(BusFrame::Kind kind, std::size_t length, bool answers, int expected);
    void slideNoise();
    void endNoise();

    FinderOptions options_;
    Bytes buf_;
    std::vector<long long> times_;  // one per byte of buf_
    BusFrame noise_;                // the run of noise bytes so far
    Bytes awaited_;                 // the request whose reply is awaited
    Expectation expect_;
    long long awaitedEndUs_ = 0;
    bool awaiting_ = false;
    std::vector<BusFrame> out_;
};

}  // namespace rvlink

#endif
