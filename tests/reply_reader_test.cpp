// The reply reader as a runtime meets it: byte streams cut into pieces at
// every point, with bytes before, inside and after the reply, and replies
// that answer another frame. CRCs are the driver's to check, so the reader
// must neither need nor judge them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "examples/reply_reader.h"

namespace {

std::vector<unsigned char> bytes(std::initializer_list<int> list)
{
    return std::vector<unsigned char>(list.begin(), list.end());
}

// Feeds `stream` in two pieces split at `split` and says what came of it:
// "skip A frame N after B" (bytes dropped before the reply, the reply's
// length, bytes that came after it) or "skip A more" while the reader still
// waits; the line falls quiet after the last piece when `quiet`.
std::string read(const std::vector<unsigned char> &request, int replyLength,
                 const std::vector<unsigned char> &stream, size_t split, bool quiet)
{
    const rvreply::Expectation e =
        rvreply::expectReply(request.data(), int(request.size()), replyLength);
    std::vector<unsigned char> buf;
    int skipped = 0;
    for (size_t piece = 0; piece < 2; ++piece) {
        const size_t from = piece ? split : 0, to = piece ? stream.size() : split;
        buf.insert(buf.end(), stream.begin() + long(from), stream.begin() + long(to));
        for (;;) {
            const rvreply::Step s =
                rvreply::readReply(e, buf.data(), int(buf.size()), piece == 1 && quiet);
            if (s.verdict == rvreply::NeedMore)
                break;
            if (s.verdict == rvreply::Frame)
                return "skip " + std::to_string(skipped) + " frame " + std::to_string(s.bytes) +
                       " after " + std::to_string(stream.size() - size_t(skipped + s.bytes));
            skipped += s.bytes;
            buf.erase(buf.begin(), buf.begin() + s.bytes);
        }
    }
    return "skip " + std::to_string(skipped) + " more";
}

}  // namespace

TEST(ReplyReader, EndsRepliesByLengthAndSkipsWhatCannotStartThem)
{
    // D0..D3 from station 1 (4 registers: 8 data bytes, 13 in all).
    const auto readRegs = bytes({0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x09});
    const auto regs = bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB});
    // D100 = 5 on station 1, and its echo.
    const auto write = bytes({0x01, 0x06, 0x00, 0x64, 0x00, 0x05, 0x49, 0xD6});
    // 9 coils: 2 data bytes.
    const auto readCoils = bytes({0x01, 0x01, 0x00, 0x00, 0x00, 0x09, 0xBC, 0x0C});
    const struct {
        const char *what;
        const std::vector<unsigned char> &request;
        int replyLength;
        std::vector<unsigned char> stream;
        bool quiet;
        const char *result;
    } cases[] = {
        {"whole reply", readRegs, 13, regs, false, "skip 0 frame 13 after 0"},
        {"exception", readRegs, 13, bytes({0x01, 0x83, 0x02, 0xC0, 0xF1}), false,
         "skip 0 frame 5 after 0"},
        {"stale bytes before", readRegs, 13,
         bytes({0x00, 0xFF, 0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB}), false,
         "skip 2 frame 13 after 0"},
        {"bytes after", readRegs, 13,
         bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB, 0x55}), false,
         "skip 0 frame 13 after 1"},
        // A byte lost inside: the reply waits for one more byte; the CRC it
        // then ends with is the driver's to reject.
        {"byte lost inside", readRegs, 13,
         bytes({0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 0xAA, 0xBB}), true, "skip 0 more"},
        {"another station", readRegs, 13,
         bytes({0x02, 0x03, 0x08, 9, 9, 9, 9, 9, 9, 9, 9, 0xCC, 0xDD,
                0x01, 0x03, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xAA, 0xBB}),
         false, "skip 13 frame 13 after 0"},
        // A late reply to a read of 2 registers, then the one asked for.
        {"another block's reply", readRegs, 13,
         bytes({0x01, 0x03, 0x04, 9, 9, 9, 9, 0xCC, 0xDD, 0x01, 0x03,
                0x08, 1,    2,    3, 4, 5, 6, 7,    8,    0xAA, 0xBB}),
         false, "skip 9 frame 13 after 0"},
        {"another function", readRegs, 13, bytes({0x01, 0x06, 0x00, 0x64}), false, "skip 4 more"},
        {"echo", write, 8, bytes({0x01, 0x06, 0x00, 0x64, 0x00, 0x05, 0x49, 0xD6}), false,
         "skip 0 frame 8 after 0"},
        // The late echo of a write of another value.
        {"another write's echo", write, 8,
         bytes({0x01, 0x06, 0x00, 0x64, 0x00, 0x06, 0x09, 0xD7, 0x01, 0x06, 0x00, 0x64, 0x00, 0x05,
                0x49, 0xD6}),
         false, "skip 8 frame 8 after 0"},
        {"coils", readCoils, 7, bytes({0x01, 0x01, 0x02, 0xFF, 0x01, 0x00, 0x00}), false,
         "skip 0 frame 7 after 0"},
        {"any length, line busy", readRegs, -1, bytes({0x01, 0x03, 0x02}), false, "skip 0 more"},
        {"any length, line quiet", readRegs, -1, bytes({0x01, 0x03, 0x02}), true,
         "skip 0 frame 3 after 0"},
        {"broadcast", write, 0, bytes({0x01, 0x06}), true, "skip 2 more"},
    };
    // The same at every split point: pieces change nothing.
    for (const auto &c : cases)
        for (size_t split = 1; split <= c.stream.size(); ++split)
            EXPECT_EQ(c.result, read(c.request, c.replyLength, c.stream, split, c.quiet))
                << c.what << ", split at " << split;
}
