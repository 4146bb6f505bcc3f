// A listener's view of a line: requests and replies found in one byte
// stream by structure and CRC, whatever pieces the bytes came in, with
// noise between and inside frames, replies cut short, bad CRCs, copies and
// late replies; then paired into exchanges. Frames are written out by hand
// (CRCs from an independent calculation).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link/bus_exchange.h"
#include "link/frame_finder.h"

namespace {

using rvlink::Bytes;

// D0..D3 of station 1, its reply (1, 2, 3, 4), a bad copy, the exception.
const Bytes kRead = {0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x09};
const Bytes kReply = {0x01, 0x03, 0x08, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x0D, 0x14};
const Bytes kBadReply = {0x01, 0x03, 0x08, 0x00, 0x01, 0x00, 0x02,
                         0x00, 0x03, 0x00, 0x04, 0x0D, 0xEB};
const Bytes kRefusal = {0x01, 0x83, 0x02, 0xC0, 0xF1};
// D100 = 0x1234 (its echo is the same 8 bytes), a broadcast D100 = 1.
const Bytes kWrite = {0x01, 0x06, 0x00, 0x64, 0x12, 0x34, 0xC5, 0x62};
const Bytes kBroadcast = {0x00, 0x06, 0x00, 0x64, 0x00, 0x01, 0x08, 0x04};
// D100-D101 = 10, 11 and its echo; M0-M15 and their reply.
const Bytes kWrite2 = {0x01, 0x10, 0x00, 0x64, 0x00, 0x02, 0x04,
                       0x00, 0x0A, 0x00, 0x0B, 0x95, 0xB1};
const Bytes kEcho2 = {0x01, 0x10, 0x00, 0x64, 0x00, 0x02, 0x00, 0x17};
const Bytes kCoils = {0x01, 0x01, 0x00, 0x00, 0x00, 0x10, 0x3D, 0xC6};
const Bytes kCoilReply = {0x01, 0x01, 0x02, 0x05, 0x80, 0xBB, 0x0C};
// Station 2's reply to a read of one register.
const Bytes kOtherReply = {0x02, 0x03, 0x02, 0x00, 0x07, 0xBD, 0x86};
// A remote link's read of D100-D101 from station 1 (closed by its sum), and
// the reply to it.
const Bytes kRemoteRead = {0x16, 0x00, 0x00, 0x00, 0x01, 0x00, 0x0E, 0x00, 0x00, 0x00, 0x64,
                           0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x8B};
const Bytes kRemoteReply = {0x01, 0x03, 0x04, 0x00, 0x0A, 0x00, 0x0B, 0x9B, 0xF6};

Bytes part(const Bytes &b, size_t from, size_t to)
{
    return Bytes(b.begin() + long(from), b.begin() + long(to));
}

// Bytes heard at a time; no bytes: nothing came until then.
struct Piece {
    int ms;
    Bytes bytes;
};

struct Heard {
    std::string frames, exchanges;
};

// The frames ("request 8, reply 13, stray reply 13") and exchanges ("ok,
// no reply") found in `pieces`, each piece fed at its time in two parts
// split at `split` (at most its size), or byte by byte when `split` is 0.
Heard listen(const std::vector<Piece> &pieces, size_t split, bool remote = false)
{
    rvlink::FinderOptions options;
    options.remoteFrames = remote;
    rvlink::FrameFinder finder(options);
    rvlink::ExchangePairer pairer;
    Heard h;
    auto take = [&] {
        for (const rvlink::BusFrame &f : finder.take()) {
            pairer.add(f);
            const bool unasked = f.kind != rvlink::BusFrame::Request && f.request.empty() &&
                                 f.kind != rvlink::BusFrame::Noise;
            h.frames += std::string(h.frames.empty() ? "" : ", ") + (unasked ? "stray " : "") +
                        rvlink::frameKindText(f.kind) + " " + std::to_string(f.bytes.size());
        }
    };
    for (const Piece &p : pieces) {
        const long long us = p.ms * 1000LL;
        if (p.bytes.empty())
            finder.idle(us);
        for (size_t at = 0; at < p.bytes.size();) {
            const size_t n = split == 0 ? 1
                             : at == 0  ? std::min(split, p.bytes.size())
                                        : p.bytes.size() - at;
            finder.feed(p.bytes.data() + at, n, us);
            at += n;
        }
        take();
    }
    finder.finish();
    take();
    pairer.finish();
    for (const rvlink::BusExchange &x : pairer.take())
        h.exchanges += std::string(h.exchanges.empty() ? "" : ", ") +
                       rvlink::outcomeText(x.outcome) +
                       (x.exception >= 0 ? " " + std::to_string(x.exception) : "");
    return h;
}

}  // namespace

TEST(FrameFinder, FindsEveryFrameWhereverThePiecesSplit)
{
    const Bytes noise = {0xAA, 0xFF};
    // A stray 0x10 request start whose byte count runs far past what follows.
    const Bytes falseStart = {0x01, 0x10, 0x00, 0x00, 0x00, 0x01, 0xF0};
    Bytes insideNoise = part(kReply, 0, 5);
    insideNoise.push_back(0xFF);
    insideNoise.insert(insideNoise.end(), kReply.begin() + 5, kReply.end());
    // What was heard, what the finder makes of it (frames, then exchanges);
    // a remote link's descriptions where the row says so.
    const struct Case {
        const char *what;
        std::vector<Piece> pieces;
        const char *heard;
        bool remote;
    } cases[] = {
        {"an exchange", {{0, kRead}, {20, kReply}}, "request 8, reply 13 => ok", false},
        {"noise between request and reply",
         {{0, kRead}, {5, noise}, {20, kReply}},
         "request 8, noise 2, reply 13 => noise, ok",
         false},
        {"noise before a request",
         {{0, noise}, {1, kRead}},
         "noise 2, request 8 => noise, no reply",
         false},
        {"a byte inside a reply, then the next exchange",
         {{0, kRead}, {20, insideNoise}, {300, kRead}, {320, kReply}},
         "request 8, bad CRC 13, noise 1, request 8, reply 13 => bad CRC, noise, ok",
         false},
        {"a bad CRC, then the next exchange",
         {{0, kRead}, {20, kBadReply}, {300, kRead}, {320, kReply}},
         "request 8, bad CRC 13, request 8, reply 13 => bad CRC, ok",
         false},
        {"a reply cut short by the next request",
         {{0, kRead}, {20, part(kReply, 0, 7)}, {600, kRead}, {620, kReply}},
         "request 8, cut short 7, request 8, reply 13 => cut short, ok",
         false},
        {"a reply cut short, then silence",
         {{0, kRead}, {20, part(kReply, 0, 5)}, {600, {}}},
         "request 8, cut short 5 => cut short",
         false},
        {"an exception",
         {{0, kRead}, {20, kRefusal}},
         "request 8, exception 5 => exception 2",
         false},
        {"a request with no reply, then another",
         {{0, kRead}, {600, kRead}, {620, kReply}},
         "request 8, request 8, reply 13 => no reply, ok",
         false},
        {"a repeated reply",
         {{0, kRead}, {20, kReply}, {70, kReply}},
         "request 8, reply 13, stray reply 13 => ok, stray reply",
         false},
        {"a late reply",
         {{0, kRead}, {700, kReply}},
         "request 8, reply 13 => no reply, stray reply",
         false},
        {"another station's reply",
         {{0, kRead}, {20, kOtherReply}, {30, kReply}},
         "request 8, stray reply 7, reply 13 => stray reply, ok",
         false},
        {"a false request start before a good exchange",
         {{0, falseStart}, {10, kRead}, {30, kReply}},
         "noise 7, request 8, reply 13 => noise, ok",
         false},
        {"a write and its echo, then the write again after no echo",
         {{0, kWrite}, {20, kWrite}, {100, kWrite}, {700, kWrite}, {720, kWrite}},
         "request 8, reply 8, request 8, request 8, reply 8 => ok, no reply, ok",
         false},
        {"a broadcast, then a read",
         {{0, kBroadcast}, {100, kRead}, {120, kReply}},
         "request 8, request 8, reply 13 => broadcast, ok",
         false},
        {"a multiple write and a coil read",
         {{0, kWrite2}, {20, kEcho2}, {40, kCoils}, {60, kCoilReply}},
         "request 13, reply 8, request 8, reply 7 => ok, ok",
         false},
        {"a remote link's read",
         {{0, kRemoteRead}, {20, kRemoteReply}},
         "request 22, reply 9 => ok",
         true},
        {"noise before a remote link's read",
         {{0, noise}, {5, kRemoteRead}, {20, kRemoteReply}},
         "noise 2, request 22, reply 9 => noise, ok",
         true},
    };
    for (const Case &c : cases) {
        size_t longest = 0;
        for (const Piece &p : c.pieces)
            longest = std::max(longest, p.bytes.size());
        for (size_t split = 0; split <= longest; ++split) {
            const Heard h = listen(c.pieces, split, c.remote);
            EXPECT_EQ(c.heard, h.frames + " => " + h.exchanges) << c.what << ", split at " << split;
        }
    }
}

TEST(FrameFinder, TimesAFrameFromItsFirstPieceToItsLast)
{
    // A reply in three pieces 50 ms apart, far longer than 3.5 characters.
    rvlink::FrameFinder finder;
    rvlink::ExchangePairer pairer;
    finder.feed(kRead.data(), kRead.size(), 1000);
    finder.feed(kReply.data(), 4, 21000);
    finder.feed(kReply.data() + 4, 5, 71000);
    finder.feed(kReply.data() + 9, 4, 121000);
    finder.finish();
    const std::vector<rvlink::BusFrame> frames = finder.take();
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ(13, frames[0].expected);
    EXPECT_EQ(21000, frames[1].firstUs);
    EXPECT_EQ(121000, frames[1].lastUs);
    EXPECT_EQ(kRead, frames[1].request);
    for (const rvlink::BusFrame &f : frames)
        pairer.add(f);
    const std::vector<rvlink::BusExchange> x = pairer.take();
    ASSERT_EQ(1u, x.size());
    EXPECT_EQ(1000, x[0].requestUs);
    EXPECT_EQ(21000, x[0].replyUs);
    EXPECT_DOUBLE_EQ(120.0, x[0].replyMs);
}
