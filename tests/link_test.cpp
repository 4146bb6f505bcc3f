// The link's pure core as a runtime meets it: replies read by length out
// of byte streams cut at every point, the reason for every skip, request
// and remote framing, line timing, the window that tells a stray copy from
// an answer, and the reads that confirm a doubtful reply. Frames are
// written out by hand (CRCs from an independent calculation).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link/confirm_read.h"
#include "link/line_timing.h"
#include "link/remote_frame.h"
#include "link/reply_reader.h"
#include "link/reply_scan.h"
#include "link/rtu_frame.h"
#include "link/stray_guard.h"

namespace {

using rvlink::Bytes;

Bytes bytes(std::initializer_list<int> list)
{
    return Bytes(list.begin(), list.end());
}

std::string hex(const Bytes &b)
{
    std::string s;
    char h[4];
    for (std::uint8_t x : b) {
        snprintf(h, sizeof h, "%s%02X", s.empty() ? "" : " ", x);
        s += h;
    }
    return s;
}

// Feeds `stream` in two pieces split at `split` and says what came of it:
// "skip A frame N after B" (bytes dropped before the reply, its length,
// bytes after it) or "skip A more" while the reader still waits; the line
// falls quiet after the last piece when `quiet`. `reasons` collects why
// each skip was made.
std::string read(const Bytes &request, int replyLength, const Bytes &stream, size_t split,
                 bool quiet, std::string *reasons = nullptr)
{
    const rvlink::Expectation e = rvlink::expectReply(request.data(), request.size(), replyLength);
    Bytes buf;
    int skipped = 0;
    for (size_t piece = 0; piece < 2; ++piece) {
        const size_t from = piece ? split : 0, to = piece ? stream.size() : split;
        buf.insert(buf.end(), stream.begin() + long(from), stream.begin() + long(to));
        for (;;) {
            const rvlink::Step s =
                rvlink::readReply(e, buf.data(), buf.size(), piece == 1 && quiet);
            if (s.verdict == rvlink::Verdict::NeedMore)
                break;
            if (s.verdict == rvlink::Verdict::Frame)
                return "skip " + std::to_string(skipped) + " frame " + std::to_string(s.bytes) +
                       " after " + std::to_string(stream.size() - size_t(skipped + s.bytes));
            skipped += s.bytes;
            if (reasons)
                *reasons +=
                    std::string(reasons->empty() ? "" : ", ") + rvlink::skipReasonText(s.reason);
            buf.erase(buf.begin(), buf.begin() + s.bytes);
        }
    }
    return "skip " + std::to_string(skipped) + " more";
}

}  // namespace

TEST(LinkReader, EndsRepliesByLengthAndSaysWhyItSkips)
{
    // D0..D3 from station 1 (4 registers: 8 data bytes, 13 in all).
    const Bytes readRegs = bytes({0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x09});
    const Bytes regs = bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB});
    // D100 = 5 on station 1, and its echo.
    const Bytes write = bytes({0x01, 0x06, 0x00, 0x64, 0x00, 0x05, 0x49, 0xD6});
    // 9 coils: 2 data bytes.
    const Bytes readCoils = bytes({0x01, 0x01, 0x00, 0x00, 0x00, 0x09, 0xBC, 0x0C});
    const struct {
        const char *what;
        const Bytes &request;
        int replyLength;
        Bytes stream;
        bool quiet;
        const char *result, *reasons;  // reasons for the whole stream in one piece
    } cases[] = {
        {"whole reply", readRegs, 13, regs, false, "skip 0 frame 13 after 0", ""},
        {"exception", readRegs, 13, bytes({0x01, 0x83, 0x02, 0xC0, 0xF1}), false,
         "skip 0 frame 5 after 0", ""},
        {"stale bytes before", readRegs, 13,
         bytes({0x00, 0xFF, 0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB}), false,
         "skip 2 frame 13 after 0", "noise"},
        {"bytes after", readRegs, 13,
         bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB, 0x55}), false,
         "skip 0 frame 13 after 1", ""},
        // A byte lost inside: the reply waits for one more byte; the CRC it
        // then ends with is the driver's to reject.
        {"byte lost inside", readRegs, 13,
         bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 0xAA, 0xBB}), true, "skip 0 more", ""},
        {"another station", readRegs, 13,
         bytes({0x02, 0x03, 0x08, 9, 9, 9, 9, 9, 9, 9, 9, 0xCC, 0xDD,
                0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB}),
         false, "skip 13 frame 13 after 0", "a reply of another station"},
        // A late reply to a read of 2 registers, then the one asked for.
        {"another block's reply", readRegs, 13,
         bytes({0x01, 0x03, 0x04, 9, 9, 9, 9, 0xCC, 0xDD, 0x01, 0x03,
                0x08, 1,    2,    3, 4, 5, 6, 7,    8,    0xAA, 0xBB}),
         false, "skip 9 frame 13 after 0", "a reply to another read"},
        {"another function", readRegs, 13, bytes({0x01, 0x06, 0x00, 0x64}), false, "skip 4 more",
         "a reply to another function"},
        {"echo", write, 8, write, false, "skip 0 frame 8 after 0", ""},
        // The late echo of a write of another value.
        {"another write's echo", write, 8,
         bytes({0x01, 0x06, 0x00, 0x64, 0x00, 0x06, 0x09, 0xD7, 0x01, 0x06, 0x00, 0x64, 0x00, 0x05,
                0x49, 0xD6}),
         false, "skip 8 frame 8 after 0", "the echo of another write"},
        {"coils", readCoils, 7, bytes({0x01, 0x01, 0x02, 0xFF, 0x01, 0x00, 0x00}), false,
         "skip 0 frame 7 after 0", ""},
        {"any length, line busy", readRegs, -1, bytes({0x01, 0x03, 0x02}), false, "skip 0 more",
         ""},
        {"any length, line quiet", readRegs, -1, bytes({0x01, 0x03, 0x02}), true,
         "skip 0 frame 3 after 0", ""},
        {"broadcast", write, 0, bytes({0x01, 0x06}), true, "skip 2 more",
         "bytes when no reply was expected"},
    };
    for (const auto &c : cases) {
        // The same at every split point: pieces change nothing.
        for (size_t split = 1; split <= c.stream.size(); ++split)
            EXPECT_EQ(c.result, read(c.request, c.replyLength, c.stream, split, c.quiet))
                << c.what << ", split at " << split;
        std::string reasons;
        read(c.request, c.replyLength, c.stream, c.stream.size(), c.quiet, &reasons);
        EXPECT_EQ(c.reasons, reasons) << c.what;
    }
}

TEST(LinkFrames, RequestLengthsRemoteDescriptionsAndTiming)
{
    // A request's length from its function, or its byte count once it came.
    EXPECT_EQ(4u, rvlink::requestLength(bytes({0x01}).data(), 1));
    EXPECT_EQ(8u, rvlink::requestLength(bytes({0x01, 0x03}).data(), 2));
    EXPECT_EQ(7u, rvlink::requestLength(bytes({0x01, 0x10, 0, 0, 0}).data(), 5));
    EXPECT_EQ(13u, rvlink::requestLength(bytes({0x01, 0x10, 1, 0xF4, 0, 2, 4}).data(), 7));
    EXPECT_EQ(0u, rvlink::requestLength(bytes({0x01, 0x2B}).data(), 2));
    rvlink::RtuRequest r;
    const Bytes w16 = bytes({0x01, 0x10, 0x01, 0xF4, 0x00, 0x02, 0x04, 0, 1, 0, 2, 0x20, 0x89});
    ASSERT_TRUE(rvlink::parseRequest(w16.data(), w16.size(), r));
    EXPECT_EQ(500, r.address);
    EXPECT_EQ(2, r.quantity);
    EXPECT_EQ(8, rvlink::replyLengthFor(r));
    Bytes bad = w16;
    bad[12] ^= 1;
    EXPECT_FALSE(rvlink::parseRequest(bad.data(), bad.size(), r));
    EXPECT_EQ("01 03 00 64 00 40 05 E5", hex(rvlink::readRequest(1, 3, 100, 64)));

    // D100, count 10, station 1, owner type 2: a read description by hand.
    const Bytes d100 =
        bytes({0x16, 2, 0, 0, 1, 0, 0x0E, 0, 0, 0, 0x64, 0, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0, 0x95});
    rvlink::RemoteRequest like;
    ASSERT_TRUE(rvlink::parseRemoteRequest(d100.data(), d100.size(), like));
    EXPECT_EQ(2, like.ownerType);
    EXPECT_EQ(14, like.areaType);
    EXPECT_EQ(100u, like.address);
    EXPECT_EQ(25, rvlink::remoteReplyLength(like));
    EXPECT_TRUE(rvlink::remoteSumCloses(d100.data(), d100.size()));
    EXPECT_EQ(hex(d100), hex(rvlink::remoteReadRequest(like, 100, 10)));
    EXPECT_EQ(22u, rvlink::remoteFrameLength(d100.data(), 3));
    // A write of 240 value bytes: 262 bytes, its length byte wrapped to 6.
    Bytes wrapped = bytes({6, 0, 1, 0, 1, 0, 0x0E, 0, 0, 0, 0, 0, 120, 0, 0, 0, 0, 0, 0, 0, 0});
    wrapped.resize(261, 7);
    unsigned sum = 0;
    for (std::uint8_t b : wrapped)
        sum += b;
    wrapped.push_back(std::uint8_t(sum));
    EXPECT_EQ(262u, rvlink::remoteFrameLength(wrapped.data(), wrapped.size()));
    EXPECT_EQ(262u, rvlink::remoteFrameLength(wrapped.data(), 30));

    // 3.5 characters between frames (11 bits for 8E1, 10 for 8N1), rounded
    // up; 1750 us above 19200 baud. A 64-register reply at 9600 8E1.
    rvlink::LineFormat f;
    f.baud = 9600;
    EXPECT_EQ(4011, rvlink::frameGapUs(f));
    EXPECT_EQ(152395, rvlink::wireTimeUs(f, 133));
    f.baud = 19200;
    f.parity = 'N';
    EXPECT_EQ(1823, rvlink::frameGapUs(f));
    f.baud = 115200;
    EXPECT_EQ(1750, rvlink::frameGapUs(f));

    // Replies found in stray bytes: noise, a read reply, an exception.
    const std::vector<Bytes> found = rvlink::findReplies(
        bytes({0x55, 0x01, 0x03, 0x02, 0x00, 0x00, 0xB8, 0x44, 0x01, 0x83, 0x02, 0xC0, 0xF1, 0x01})
            .data(),
        14);
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ("01 03 02 00 00 B8 44", hex(found[0]));
    EXPECT_EQ("01 83 02 C0 F1", hex(found[1]));
}

TEST(LinkGuard, TellsCopiesFromAnswersAndKeepsItsWindow)
{
    const Bytes a = rvlink::readRequest(1, 3, 0, 1), b = rvlink::readRequest(1, 3, 10, 1);
    const Bytes zero = bytes({0x01, 0x03, 0x02, 0x00, 0x00, 0xB8, 0x44});
    rvlink::StrayGuard g(400, 1000);
    g.noteAnswer(a, zero, 1000);
    EXPECT_TRUE(g.couldBeCopy(b, zero, 1100));   // another request's reply
    EXPECT_FALSE(g.couldBeCopy(a, zero, 1100));  // its own again
    EXPECT_TRUE(g.repeatsLastAnswer(a, zero));
    EXPECT_FALSE(g.repeatsLastAnswer(b, zero));
    // Remembered for a minute (20 windows of 400 ms are less).
    EXPECT_TRUE(g.couldBeCopy(b, zero, 1000 + 60000));
    EXPECT_FALSE(g.couldBeCopy(b, zero, 1000 + 60001));
    // Taken for b as well: now a copy could answer either.
    g.noteAnswer(b, zero, 2000);
    EXPECT_TRUE(g.couldBeCopy(a, zero, 2100));
    EXPECT_EQ(std::vector<int>{2}, g.shapesRemembered(1, 3, 2100));
    EXPECT_TRUE(g.shapesRemembered(1, 1, 2100).empty());
    EXPECT_FALSE(g.showsStrays(2100));
    g.noteUnanswered(bytes({0x01, 0x03, 0x02, 0x00, 0x01, 0x79, 0x84}), 3000);
    EXPECT_TRUE(g.showsStrays(3000 + 59999));
    EXPECT_FALSE(g.showsStrays(3000 + 60000));
    // Lateness widens the window to twice itself, never past its limit.
    EXPECT_FALSE(g.noteLateness(200));
    EXPECT_TRUE(g.noteLateness(300));
    EXPECT_EQ(600, g.windowMs());
    EXPECT_TRUE(g.noteLateness(900));
    EXPECT_EQ(1000, g.windowMs());
}

TEST(LinkConfirm, AsksInAnotherShapeAndComparesWhatBothHold)
{
    const struct {
        const char *what;
        Bytes request;
        std::vector<int> busy;
        int attempt;
        const char *reads;
    } plans[] = {
        {"one register more", rvlink::readRequest(1, 3, 100, 64), {}, 0, "01 03 00 64 00 41 C4 25"},
        {"that shape seen",
         rvlink::readRequest(1, 3, 100, 64),
         {130},
         0,
         "01 03 00 64 00 42 84 24"},
        {"moved back", rvlink::readRequest(1, 3, 100, 64), {}, 1, "01 03 00 63 00 41 75 E4"},
        {"at the top", rvlink::readRequest(1, 3, 65472, 64), {}, 0, "01 03 FF BF 00 41 84 0A"},
        {"longest read",
         rvlink::readRequest(1, 3, 0, 125),
         {},
         0,
         "01 03 00 00 00 7C 44 2B | 01 03 00 01 00 7C 15 EB"},
        {"eight coils more", rvlink::readRequest(1, 1, 8, 16), {}, 0, "01 01 00 08 00 18 BD C2"},
        {"a register write read back",
         bytes({0x01, 0x10, 0x01, 0xF4, 0x00, 0x02, 0x04, 0, 1, 0, 2, 0x20, 0x89}),
         {},
         0,
         "01 03 01 F4 00 02 84 05"},
        {"a coil write read back",
         bytes({0x01, 0x05, 0x00, 0x05, 0xFF, 0x00, 0x9C, 0x3B}),
         {},
         0,
         "01 01 00 05 00 01 ED CB"},
        {"a broadcast", rvlink::readRequest(0, 3, 0, 1), {}, 0, ""},
    };
    for (const auto &p : plans) {
        std::string reads;
        for (const rvlink::CheckRead &c :
             rvlink::planConfirmation(p.request, false, p.busy, p.attempt).reads)
            reads += (reads.empty() ? "" : " | ") + hex(c.request);
        EXPECT_EQ(p.reads, reads) << p.what;
    }

    const Bytes write = bytes({0x01, 0x10, 0x01, 0xF4, 0x00, 0x02, 0x04, 0, 1, 0, 2, 0x20, 0x89});
    const Bytes echo = bytes({0x01, 0x10, 0x01, 0xF4, 0x00, 0x02, 0x01, 0xC6});
    const Bytes one = bytes({0x01, 0x03, 0x01, 0xF4, 0x00, 0x01, 0xC4, 0x04});
    const Bytes zero = bytes({0x01, 0x03, 0x02, 0x00, 0x00, 0xB8, 0x44});
    const Bytes held12 = bytes({0x01, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02, 0x2A, 0x32});
    const Bytes held00 = bytes({0x01, 0x03, 0x04, 0x00, 0x00, 0x00, 0x00, 0xFA, 0x33});
    const Bytes refused = bytes({0x01, 0x83, 0x02, 0xC0, 0xF1});
    const struct {
        const char *what;
        const Bytes &request, &reply, &check;
        bool holds;
    } checks[] = {
        {"the write landed", write, echo, held12, true},
        {"the write did not land", write, echo, held00, false},
        {"the read agrees", one, zero, held00, true},
        {"the read was another block's", one, zero, held12, false},
        {"the check refused", one, zero, refused, false},
    };
    for (const auto &c : checks) {
        const rvlink::Confirmation plan = rvlink::planConfirmation(c.request, false, {}, 0);
        EXPECT_EQ(c.holds, rvlink::confirms(c.request, c.reply, false, plan, {c.check})) << c.what;
    }
}
