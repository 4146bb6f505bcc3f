// Write queue and one-off read queue: repeats, limits, cutting, bad input.
#include <gtest/gtest.h>

#include <climits>
#include <utility>
#include <vector>

#include "support/driver_reset.h"
#include "support/frame_request.h"

namespace {

int write(RW_VAR v, int mode = 0)
{
    return AddListWriteVar(&v, mode);
}
int readOnce(RW_VAR v, int mode = 0)
{
    return AddListOnceReadVar(&v, mode);
}

// (address, count) of every queued one-off read.
typedef std::vector<std::pair<int, int>> Pieces;
Pieces onceList()
{
    Pieces out;
    for (const RW_VAR &v : PLC_driver.onceReadList)
        out.push_back(std::make_pair(v.address, v.count));
    return out;
}

}  // namespace

TEST(Queues, WriteReplacesPendingEqualWriteButNeverTheHead)
{
    resetDriver();
    const RW_VAR d100 = request(14, "100", 1, 1, 0, QByteArray("\x01\x00", 2));
    EXPECT_EQ(1, write(d100));
    EXPECT_EQ(2, write(d100));  // only the head so far: appended
    EXPECT_EQ(2, write(d100));  // a repeat of the second replaces it
    for (int count = 1; count <= 3; ++count)
        write(request(14, "200", count));
    EXPECT_EQ(5, write(request(14, "100", 1, 1, 42, QByteArray("\x34\x12", 2))));
    const QList<RW_VAR> &w = PLC_driver.writeList;
    EXPECT_EQ(QByteArray("\x01\x00", 2), w.at(0).value);  // head untouched
    EXPECT_EQ(QByteArray("\x34\x12", 2), w.at(1).value);
    EXPECT_EQ(42, w.at(1).ownerId);
    EXPECT_EQ(6, write(request(14, "100", 2)));     // another count is another target
    EXPECT_EQ(7, write(request(14, "100", 2), 1));  // mode 1 never merges
    EXPECT_EQ(7, AddListWriteVar(nullptr, 0));
}

TEST(Queues, FullQueuesDropNewEntriesButStillMerge)
{
    ComInfo *info = resetDriver();
    RW_VAR v = request(14, "0", 1);
    for (v.address = 0; v.address < 1024; ++v.address)
        AddListWriteVar(&v, 1);
    EXPECT_EQ(1024, write(request(14, "5000", 1)));
    EXPECT_EQ(1024, write(request(14, "7", 1, 1, 0, QByteArray("\x09\x00", 2))));
    EXPECT_EQ(QByteArray("\x09\x00", 2), PLC_driver.writeList.at(7).value);
    EXPECT_EQ(1025, write(request(14, "5000", 1), 1));

    // A huge one-off read fills the queue and stops instead of cutting forever.
    info->blockUnits = 1;
    RW_VAR huge = request(14, "0", INT_MAX);
    EXPECT_EQ(1024, AddListOnceReadVar(&huge, 0));
    EXPECT_EQ(std::make_pair(1023, 1), onceList().back());
    EXPECT_EQ(INT_MAX - 1, huge.address);  // the record ends on the last piece
    EXPECT_EQ(1024, readOnce(request(15, "0", 1)));
    EXPECT_EQ(1025, readOnce(request(15, "0", 1), 1));
}

TEST(Queues, OnceReadsAreCutIntoFrameUnitsWithoutRepeats)
{
    ComInfo *info = resetDriver();
    info->blockUnits = 2;
    EXPECT_EQ(2, readOnce(request(2, "13", 20)));
    EXPECT_EQ(2, readOnce(request(2, "13", 20)));  // pieces already queued, head included
    EXPECT_EQ(4, readOnce(request(0, "12", 10)));  // octal: bit 10
    info->blockUnits = 100;
    EXPECT_EQ(7, readOnce(request(1, "0", 24)));  // one byte per frame whatever blockUnits is
    EXPECT_EQ(10, readOnce(request(14, "100", 250)));
    EXPECT_EQ(10, readOnce(request(14, "100", 250)));
    EXPECT_EQ(13, readOnce(request(14, "100", 250, 1, 3)));  // another owner gets its own reads
    EXPECT_EQ(14, readOnce(request(2, "7", 1)));
    // clang-format off
    EXPECT_EQ(Pieces({{8, 2}, {24, 2}, {8, 1}, {16, 1}, {0, 1}, {8, 1}, {16, 1}, {100, 100},
                      {200, 100}, {300, 50}, {100, 100}, {200, 100}, {300, 50}, {0, 1}}),
              onceList());
    // clang-format on
}

TEST(Queues, BadOnceReadsAreRefusedOrQueueNothing)
{
    ComInfo *info = resetDriver();
    EXPECT_EQ(0, readOnce(request(14, "-5", 1)));
    info->defaultStation = 0;
    EXPECT_EQ(0, readOnce(request(14, "5", 1, 9)));
    info->multiStation = 1;
    EXPECT_EQ(1, readOnce(request(14, "5", 1, 9)));  // keeps its own station
    EXPECT_EQ(9, PLC_driver.onceReadList.at(0).station);

    EXPECT_EQ(1, readOnce(request(14, "5", 0)));    // no piece of nothing
    EXPECT_EQ(2, readOnce(request(14, "5", -40)));  // one piece, the remainder
    EXPECT_EQ(3, readOnce(request(2, "5", 0)));     // still needs the byte holding M5
    info->blockUnits = 0;                           // one piece of everything, even of nothing
    readOnce(request(14, "1000", 500));
    readOnce(request(14, "6", 0));
    info->blockUnits = -3;  // 497 / -3 + 1 pieces: none; -10 / -3 + 1: four
    readOnce(request(14, "2000", 497));
    readOnce(request(14, "2000", -10));
    info->blockUnits = 2;
    RW_VAR unknown = request(40, "abc", 3);  // no such area: cut as given
    unknown.address = 77;
    readOnce(unknown);
    EXPECT_EQ(Pieces({{5, 1},
                      {5, -40},
                      {0, 1},
                      {1000, 500},
                      {6, 0},
                      {2000, -3},
                      {1997, -3},
                      {1994, -3},
                      {1991, -1},
                      {77, 2},
                      {79, 1}}),
              onceList());
    // No piece: the record keeps its start from the text and, for bits,
    // the byte start and byte count ((5 - 60 + 7) / 8 bytes from M8).
    info->blockUnits = 4;
    RW_VAR words = request(14, "14", 0), bits = request(2, "13", -60);
    words.address = 0;
    AddListOnceReadVar(&words, 0);
    AddListOnceReadVar(&bits, 0);
    EXPECT_EQ(Pieces({{14, 0}, {8, -6}}),
              Pieces({{words.address, words.count}, {bits.address, bits.count}}));
    EXPECT_EQ(0, AddListOnceReadVar(nullptr, 0));
    PLC_driver.comInfo = nullptr;
    EXPECT_EQ(0, readOnce(unknown));
}
