// rvpoll's parts without a line or a process: value formats both ways,
// which values may be shown after which reads and writes, and every
// outcome a write can reach, with the driver linked in and its frames
// answered by hand.
#include <gtest/gtest.h>

#include "common/value_format.h"
#include "read_state.h"
#include "support/driver_reset.h"
#include "write_tracker.h"

namespace {

DriverApi linkedDriver()
{
    DriverApi api;
    api.SetComInfo = &::SetComInfo;
    api.ComCommunication = &::ComCommunication;
    api.DataCom = &::DataCom;
    api.GetRegisterData = &::GetRegisterData;
    api.SetRegisterData = &::SetRegisterData;
    return api;
}

WriteSpec write(const char *text)
{
    WriteSpec w;
    QString error;
    EXPECT_TRUE(parseWriteSpec(text, false, w, error)) << text << ": " << error.toStdString();
    return w;
}

}  // namespace

TEST(PollerParts, FormatsReadAndWriteTheSameValues)
{
    const struct {
        const char *format;
        QList<int> words;
        const char *shown;
    } rows[] = {
        {"uint16", {65534}, "65534"},
        {"int16", {65534}, "-2"},
        {"hex", {0x1B41}, "0x1B41"},
        {"uint32", {0x0001, 0x0002}, "65538"},
        {"int32", {0xFFFE, 0x0000}, "-131072"},
        {"int32:cdab", {0x0000, 0xFFFE}, "-131072"},
        {"float", {0xBFC0, 0x0000}, "-1.5"},
        {"float:cdab", {0x0000, 0xBFC0}, "-1.5"},
        {"string", {0x6865, 0x6C6C, 0x6F00}, "hello"},
        {"string", {0x411B}, "A\x1b"},
    };
    for (const auto &r : rows) {
        ValueFormat f;
        QString error;
        ASSERT_TRUE(parseFormat(r.format, f, error)) << r.format;
        EXPECT_EQ(r.shown, formatValue(f, r.words).toStdString()) << r.format;
        QList<int> words;
        if (f.kind != ValueFormat::Hex && f.kind != ValueFormat::String)
            ASSERT_TRUE(encodeValues(f, formatValue(f, r.words), words, error)) << r.format;
        else if (f.kind == ValueFormat::String && r.words.size() == 3)
            ASSERT_TRUE(encodeValues(f, "hello", words, error));
        else
            continue;
        EXPECT_EQ(r.words, words) << r.format;
    }
    ValueFormat f;
    QString error;
    EXPECT_FALSE(parseFormat("float:badc", f, error));
    QList<int> words;
    EXPECT_FALSE(encodeValues(f, "65536", words, error));
}

TEST(PollerParts, OnlyGoodReadsOfSettledElementsAreKnown)
{
    const auto now = std::chrono::steady_clock::now();
    BlockState d0;  // D0-D9 read well just now
    d0.station = 1;
    d0.areaType = 14;
    d0.elements = 10;
    d0.lastCode = 1;
    d0.everRead = true;
    d0.readAt = now;
    BlockState doubted = d0;  // D10-D19: bytes came after its reply
    doubted.address = 10;
    doubted.doubted = true;
    BlockState failed = d0;  // D20-D29: its last read failed
    failed.address = 20;
    failed.lastCode = 41;
    failed.line = "no answer";
    UnsettledWrite pending;  // D5 written, not landed yet
    pending.station = 1;
    pending.areaType = 14;
    pending.address = 5;
    pending.count = 1;
    pending.pending = true;
    UnsettledWrite earlier = pending;  // D7 failed before the last read
    earlier.address = 7;
    earlier.pending = false;
    earlier.endedAt = now - std::chrono::seconds(1);
    const ReadState state({d0, doubted, failed}, 1, false, {pending, earlier});
    VarSpec v;
    v.areaType = 14;
    v.count = 40;
    std::string known;
    for (int i = 0; i < v.count; ++i)
        known += state.known(v, i) ? 'k' : '-';
    EXPECT_EQ("kkkkk-kkkk------------------------------", known);
    EXPECT_EQ(QStringList({"D10-D19 on station 1: bytes came after its reply, which may have "
                           "answered another frame: unknown until read again (last read 0.0 s "
                           "ago)",
                           "D20-D29 on station 1: no answer (code 41 no reply): check station, "
                           "baud and parity",
                           "D30-D39: past the end of the D area, never read"}),
              state.problems({v}, true));
    EXPECT_EQ(QStringList({"D30-D39"}), state.neverRead({v}));
}

TEST(PollerParts, EveryWriteEndsWrittenFailedNotConfirmedDroppedOrRefused)
{
    resetDriver();
    const DriverApi api = linkedDriver();
    static ComInfo info;
    info = ComInfo();
    info.blockUnits = 64;
    info.defaultStation = 1;
    info.retryLimit = 0;
    info.writeMode = 2;
    api.SetComInfo(&info);
    WriteTracker writes(api, 1, false, 64, 1);
    QString message;
    EXPECT_FALSE(writes.queue(write("X0=1"), message));
    EXPECT_EQ("write X0=1: refused (X and SEM cannot be written)", message.toStdString());
    // Each write's frame answered by hand: a 0x06 echo is the frame itself.
    const auto answer = [&](const char *line) {
        Protocol *p = api.ComCommunication();
        ASSERT_NE(nullptr, p);
        QByteArray reply = line ? QByteArray() : p->frame.left(8);
        writes.dataCom(&reply, line ? line : "");
    };
    for (const char *w : {"D100=1", "D101=2", "D102=3"})
        ASSERT_TRUE(writes.queue(write(w), message)) << w;
    answer(nullptr);
    // A reply the line could not confirm: given up, and the give-up drops
    // the write behind it, queued again once the station answers.
    answer("not confirmed: the reply could be a stray copy");
    ASSERT_TRUE(writes.queue(write("D103=4"), message));
    answer(nullptr);
    answer("no answer");
    EXPECT_EQ(
        QStringList({"write X0=1: refused (X and SEM cannot be written)", "write D100=1: written",
                     "write D101=2: not confirmed (not confirmed: the reply could be a "
                     "stray copy, code 41: no reply)",
                     "write D102=3: dropped by a give-up, queued again once station 1 "
                     "answers",
                     "write D103=4: written",
                     "write D102=3: failed (no answer, code 41: no reply), queued again 1 "
                     "time"})
            .join("\n")
            .toStdString(),
        writes.takeEvents().join("\n").toStdString());
    const WriteCounts c = writes.counts();
    EXPECT_EQ(2, c.written);
    EXPECT_EQ(2, c.failed);
    EXPECT_EQ(1, c.refused);
    EXPECT_FALSE(writes.busy());
}
