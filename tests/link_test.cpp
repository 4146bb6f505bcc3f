// The link's pure core as a runtime meets it: replies read by length out
// of byte streams cut at every point, the reason for every skip, request
// and remote framing, line timing, the window that tells a stray copy from
// an answer, the reads that confirm a doubtful reply, and what gateways on
// the network put around frames. Frames are written out by hand (CRCs from
// an independent calculation).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link/confirm_read.h"
#include "link/line_address.h"
#include "link/line_timing.h"
#include "link/mbap.h"
#include "link/modbus_tcp_carrier.h"
#include "link/remote_frame.h"
#include "link/reply_reader.h"
#include "link/reply_scan.h"
#include "link/rtu_frame.h"
#include "link/stray_guard.h"
#include "link/telnet.h"

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

TEST(LinkNetwork, AddressesNameTheirGateway)
{
    using A = rvlink::LineAddress;
    const struct {
        const char *text;
        A::Kind kind;
        const char *host;
        int port;  // 0: refused
    } cases[] = {
        {"/dev/ttyUSB0", A::Device, "", 0},
        {"socket://127.0.0.1:7000", A::Socket, "127.0.0.1", 7000},
        {"rfc2217://gw.local:2217", A::Rfc2217, "gw.local", 2217},
        {"modbus-tcp://10.0.0.5", A::ModbusTcp, "10.0.0.5", 502},
        {"modbus-tcp://[::1]:1502", A::ModbusTcp, "::1", 1502},
        {"socket://127.0.0.1", A::Device, "", 0},
        {"socket://:7000", A::Device, "", 0},
        {"rfc2217://gw:0", A::Device, "", 0},
        {"rfc2217://gw:65536", A::Device, "", 0},
        {"socket://gw:12x", A::Device, "", 0},
        {"socket://gw:-5", A::Device, "", 0},
        {"modbus-tcp://[::1", A::Device, "", 0},
    };
    for (const auto &c : cases) {
        A a;
        std::string error;
        const bool device = std::string(c.text)[0] == '/';
        EXPECT_EQ(!device, rvlink::isNetworkAddress(c.text)) << c.text;
        EXPECT_EQ(device || c.port > 0, rvlink::parseLineAddress(c.text, a, error)) << c.text;
        EXPECT_EQ(c.kind, a.kind) << c.text;
        EXPECT_EQ(c.host, a.host) << c.text;
        EXPECT_EQ(device || c.port > 0, error.empty()) << c.text << ": " << error;
    }
}

TEST(LinkNetwork, TelnetEscapesNegotiatesAndSetsTheFarPort)
{
    namespace t = rvlink::telnet;
    EXPECT_EQ("01 FF FF 02", hex(t::escape(bytes({0x01, 0xFF, 0x02}).data(), 3)));
    EXPECT_EQ("FF FB 00 FF FB 03 FF FB 2C FF FD 00 FF FD 03", hex(t::opening()));
    // Data with a doubled IAC, WILL COM-PORT, the baud rate's answer, data,
    // and the parity's answer holding an IAC: the same at every cut.
    const Bytes stream =
        bytes({0x01, 0xFF, 0xFF, 0x02, 0xFF, 0xFB, 0x2C, 0xFF, 0xFA, 0x2C, 0x65, 0x00, 0x00,
               0x25, 0x80, 0xFF, 0xF0, 0x03, 0xFF, 0xFA, 0x2C, 0x67, 0xFF, 0xFF, 0xFF, 0xF0});
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        t::Reader reader;
        Bytes data;
        std::vector<t::Command> commands;
        reader.feed(stream.data(), cut, data, commands);
        reader.feed(stream.data() + cut, stream.size() - cut, data, commands);
        EXPECT_EQ("01 FF 02 03", hex(data)) << cut;
        ASSERT_EQ(3u, commands.size()) << cut;
        EXPECT_EQ(t::WILL * 256 + 44, commands[0].verb * 256 + commands[0].option);
        EXPECT_EQ("65 00 00 25 80", hex(commands[1].payload));
        EXPECT_TRUE(t::answers(commands[1], t::SetBaudRate));
        EXPECT_FALSE(t::answers(commands[1], t::SetParity));
        EXPECT_EQ("67 FF", hex(commands[2].payload));
    }
    // What the server asks for that the client does not do is refused once.
    t::Negotiator n;
    const std::pair<int, const char *> asked[] = {
        {t::DO * 256 + 44, ""},          {t::DO * 256 + 1, "FF FC 01"}, {t::DO * 256 + 1, ""},
        {t::WILL * 256 + 1, "FF FE 01"}, {t::WILL * 256 + 0, ""},       {t::DONT * 256 + 0, ""},
    };
    for (const auto &a : asked)
        EXPECT_EQ(a.second, hex(n.answer(a.first / 256, a.first % 256))) << a.first;
    // 9600 8N2 and 115200 8O1 (parity 1 none, 2 odd, 3 even), each command's
    // value with an IAC in it doubled.
    rvlink::LineFormat f;
    f.baud = 9600;
    f.parity = 'N';
    f.stopBits = 2;
    std::string settings;
    for (const t::Setting &s : t::formatSettings(f))
        settings += hex(t::comPortCommand(s.command, s.value)) + "; ";
    f = rvlink::LineFormat();
    f.baud = 115200;
    f.parity = 'O';
    settings += hex(t::formatSettings(f)[0].value) + " " + hex(t::formatSettings(f)[2].value);
    EXPECT_EQ("FF FA 2C 01 00 00 25 80 FF F0; FF FA 2C 02 08 FF F0; FF FA 2C 03 01 FF F0; "
              "FF FA 2C 04 02 FF F0; 00 01 C2 00 02",
              settings);
    EXPECT_EQ("FF FA 2C 01 00 FF FF 00 00 FF F0",
              hex(t::comPortCommand(t::SetBaudRate, bytes({0x00, 0xFF, 0x00, 0x00}))));
}

TEST(LinkNetwork, ModbusTcpFramesAndTellsALateReplyByItsTransaction)
{
    const Bytes read = bytes({0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x09});
    Bytes out;
    ASSERT_TRUE(rvlink::mbapFrame(read.data(), read.size(), 0x1234, out));
    EXPECT_EQ("12 34 00 00 00 06 01 03 00 00 00 04", hex(out));
    const Bytes badCrc = bytes({0x01, 0x03, 0x00, 0x00, 0x00, 0x04, 0x44, 0x08});
    EXPECT_FALSE(rvlink::mbapFrame(badCrc.data(), badCrc.size(), 1, out));
    EXPECT_FALSE(rvlink::mbapFrame(read.data(), 3, 1, out));

    // D0-D3 = 11, 0x1234, 0, 0 from unit 1.
    const Bytes reply = bytes({0x12, 0x34, 0x00, 0x00, 0x00, 0x0B, 0x01, 0x03, 0x08, 0x00, 0x0B,
                               0x12, 0x34, 0x00, 0x00, 0x00, 0x00});
    const struct {
        Bytes frame;
        std::size_t length;
        rvlink::MbapVerdict verdict;
        std::size_t taken;
        const char *rtu;
    } cases[] = {
        {reply, 17, rvlink::MbapVerdict::Reply, 17, "01 03 08 00 0B 12 34 00 00 00 00 9D A1"},
        {reply, 16, rvlink::MbapVerdict::NeedMore, 0, ""},
        {reply, 6, rvlink::MbapVerdict::NeedMore, 0, ""},
        {bytes({0x12, 0x33, 0, 0, 0, 3, 1, 0x83, 2}), 9, rvlink::MbapVerdict::Stale, 9, ""},
        {bytes({0x12, 0x34, 0, 1, 0, 3, 1, 0x83, 2}), 9, rvlink::MbapVerdict::Broken, 9, ""},
        {bytes({0x12, 0x34, 0, 0, 0, 1, 1}), 7, rvlink::MbapVerdict::Broken, 7, ""},
        {bytes({0x12, 0x34, 0, 0, 1, 0, 1}), 7, rvlink::MbapVerdict::Broken, 7, ""},
    };
    for (const auto &c : cases) {
        Bytes rtu;
        const rvlink::MbapStep step = rvlink::readMbap(c.frame.data(), c.length, 0x1234, rtu);
        EXPECT_EQ(int(c.verdict), int(step.verdict)) << hex(c.frame);
        EXPECT_EQ(c.taken, step.bytes) << hex(c.frame);
        EXPECT_EQ(c.rtu, hex(rtu)) << hex(c.frame);
    }

    // Over a connection: an earlier request's late reply and the gateway's
    // "no answer" (0x0B) are dropped and counted; the answer, in pieces,
    // comes out as its RTU frame.
    rvlink::ModbusTcpCarrier carrier;
    ASSERT_TRUE(carrier.wrap(read.data(), read.size(), out));
    ASSERT_TRUE(carrier.wrap(read.data(), read.size(), out));
    EXPECT_EQ("00 02 00 00 00 06 01 03 00 00 00 04", hex(out));
    const Bytes stream =
        bytes({0x00, 0x01, 0,    0,    0, 3, 1, 0x83, 0x02, 0x00, 0x02, 0, 0, 0, 3, 1,
               0x83, 0x0B, 0x00, 0x02, 0, 0, 0, 7,    1,    3,    4,    0, 5, 0, 6});
    Bytes line, answer;
    EXPECT_TRUE(carrier.unwrap(stream.data(), 20, line, answer));
    EXPECT_TRUE(carrier.unwrap(stream.data() + 20, stream.size() - 20, line, answer));
    EXPECT_EQ("01 03 04 00 05 00 06 6A 30", hex(line));
    rvlink::NetworkFigures figures;
    carrier.addFigures(figures);
    EXPECT_EQ(1, figures.stale);
    EXPECT_EQ(1, figures.gatewayNoAnswer);
    EXPECT_FALSE(carrier.wrap(badCrc.data(), badCrc.size(), out));
    const Bytes broken = bytes({0, 2, 0, 9, 0, 3, 1, 3, 0});
    EXPECT_FALSE(carrier.unwrap(broken.data(), broken.size(), line, answer));
}
