// Write queue and one-off read queue: repeats, limits, cutting, bad input.
#include <gtest/gtest.h>

#include <utility>

#include "support/driver_reset.h"

namespace {

RW_VAR request(int areaType, const char *address, int count, int station = 1)
{
    RW_VAR v;
    v.areaType = areaType;
    v.addressText = QString::fromLatin1(address);
    v.address = v.addressText.toInt(nullptr, areaType <= 1 ? 8 : 10);
    v.count = count;
    v.station = station;
    return v;
}

// (address, count) of the one-off read at `i`.
std::pair<int, int> once(int i)
{
    const RW_VAR &v = PLC_driver.onceReadList.at(i < 0 ? PLC_driver.onceReadList.size() + i : i);
    return std::make_pair(v.address, v.count);
}

class Queues : public ::testing::Test {
protected:
    void SetUp() override { info = resetDriver(); }
    ComInfo *info;
};

TEST_F(Queues, WriteReplacesPendingEqualWriteButNeverTheHead)
{
    RW_VAR d100 = request(14, "100", 1);
    d100.value = QByteArray("\x01\x00", 2);
    EXPECT_EQ(1, AddListWriteVar(&d100, 0));
    EXPECT_EQ(2, AddListWriteVar(&d100, 0));  // only the head so far: appended
    RW_VAR other = request(14, "200", 1);
    for (int i = 0; i < 3; ++i, ++other.count)
        AddListWriteVar(&other, 0);
    RW_VAR newer = d100;
    newer.value = QByteArray("\x34\x12", 2);
    newer.ownerId = 42;
    EXPECT_EQ(5, AddListWriteVar(&newer, 0));
    const QList<RW_VAR> &w = PLC_driver.writeList;
    EXPECT_EQ(QByteArray("\x01\x00", 2), w.at(0).value);  // head untouched
    EXPECT_EQ(QByteArray("\x34\x12", 2), w.at(1).value);
    EXPECT_EQ(42, w.at(1).ownerId);
    RW_VAR wider = request(14, "100", 2);  // another count is another target
    EXPECT_EQ(6, AddListWriteVar(&wider, 0));
    EXPECT_EQ(7, AddListWriteVar(&wider, 1));  // mode 1 never merges
    EXPECT_EQ(7, AddListWriteVar(nullptr, 0));
}

TEST_F(Queues, FullQueuesDropNewEntriesButStillMerge)
{
    RW_VAR v = request(14, "0", 1);
    for (v.address = 0; v.address < 1024; ++v.address)
        AddListWriteVar(&v, 1);
    RW_VAR fresh = request(14, "5000", 1);
    EXPECT_EQ(1024, AddListWriteVar(&fresh, 0));
    RW_VAR pending = request(14, "7", 1);
    pending.value = QByteArray("\x09\x00", 2);
    EXPECT_EQ(1024, AddListWriteVar(&pending, 0));
    EXPECT_EQ(QByteArray("\x09\x00", 2), PLC_driver.writeList.at(7).value);
    EXPECT_EQ(1025, AddListWriteVar(&fresh, 1));

    // A huge one-off read fills the queue and stops instead of cutting forever.
    info->blockUnits = 1;
    RW_VAR huge = request(14, "0", 2147483647);
    EXPECT_EQ(1024, AddListOnceReadVar(&huge, 0));
    EXPECT_EQ(std::make_pair(1023, 1), once(-1));
    EXPECT_EQ(2147483646, huge.address);  // the record ends on the last piece
    RW_VAR more = request(15, "0", 1);
    EXPECT_EQ(1024, AddListOnceReadVar(&more, 0));
    EXPECT_EQ(1025, AddListOnceReadVar(&more, 1));
}

TEST_F(Queues, OnceReadsAreCutIntoFrameUnitsWithoutRepeats)
{
    info->blockUnits = 2;
    RW_VAR m13 = request(2, "13", 20);
    EXPECT_EQ(2, AddListOnceReadVar(&m13, 0));
    EXPECT_EQ(std::make_pair(8, 2), once(0));
    EXPECT_EQ(std::make_pair(24, 2), once(1));
    m13 = request(2, "13", 20);  // equal to the head, which may be in flight
    EXPECT_EQ(2, AddListOnceReadVar(&m13, 0));
    RW_VAR x12 = request(0, "12", 10);  // octal: bit 10
    EXPECT_EQ(4, AddListOnceReadVar(&x12, 0));
    EXPECT_EQ(std::make_pair(8, 1), once(2));
    EXPECT_EQ(std::make_pair(16, 1), once(3));
    info->blockUnits = 100;
    RW_VAR y0 = request(1, "0", 24);  // one byte per frame whatever blockUnits is
    EXPECT_EQ(7, AddListOnceReadVar(&y0, 0));
    RW_VAR d100 = request(14, "100", 250);
    EXPECT_EQ(10, AddListOnceReadVar(&d100, 0));
    EXPECT_EQ(std::make_pair(300, 50), once(9));
    RW_VAR again = request(14, "100", 250);
    EXPECT_EQ(10, AddListOnceReadVar(&again, 0));
    again = request(14, "100", 250);
    again.ownerId = 3;  // another owner gets its own reads
    EXPECT_EQ(13, AddListOnceReadVar(&again, 0));
    RW_VAR m7 = request(2, "7", 1);
    EXPECT_EQ(14, AddListOnceReadVar(&m7, 0));
    EXPECT_EQ(std::make_pair(0, 1), once(-1));
}

TEST_F(Queues, BadOnceReadsAreRefusedOrQueueNothing)
{
    RW_VAR negative = request(14, "-5", 1);
    EXPECT_EQ(0, AddListOnceReadVar(&negative, 0));
    info->defaultStation = 0;
    RW_VAR noStation = request(14, "5", 1, 9);
    EXPECT_EQ(0, AddListOnceReadVar(&noStation, 0));
    info->multiStation = 1;
    noStation.station = 9;
    EXPECT_EQ(1, AddListOnceReadVar(&noStation, 0));  // keeps its own station
    EXPECT_EQ(9, PLC_driver.onceReadList.at(0).station);

    RW_VAR zero = request(14, "5", 0);
    EXPECT_EQ(1, AddListOnceReadVar(&zero, 0));
    zero = request(14, "5", -40);
    EXPECT_EQ(1, AddListOnceReadVar(&zero, 0));
    RW_VAR offByte = request(2, "5", 0);  // still needs the byte holding M5
    EXPECT_EQ(2, AddListOnceReadVar(&offByte, 0));
    for (int units = 0; units >= -3; units -= 3) {
        info->blockUnits = units;  // no limit: one piece of everything
        RW_VAR d = request(14, "1000", 500 + units);
        AddListOnceReadVar(&d, 0);
        EXPECT_EQ(std::make_pair(1000, 500 + units), once(-1));
    }
    RW_VAR unknown = request(40, "abc", 3);  // no such area: queued as given
    unknown.address = 77;
    AddListOnceReadVar(&unknown, 0);
    EXPECT_EQ(std::make_pair(77, 3), once(-1));
    EXPECT_EQ(0, AddListOnceReadVar(nullptr, 0));
    PLC_driver.comInfo = nullptr;
    EXPECT_EQ(0, AddListOnceReadVar(&unknown, 0));
}

}  // namespace
