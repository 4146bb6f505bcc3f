// The per-station store: lookup equal to a walk of the list, stored replies
// and writes per station, and the bounds of the store's keys.
#include <cstdlib>

#include <gtest/gtest.h>

#include "localarea/store.h"
#include "support/driver_reset.h"

namespace {

int linearFind(int s, int t, int a)
{
    const QList<EXTENDVAR> &l = PLC_driver.extendList;
    for (int i = 0; i < l.size(); ++i)
        if (l[i].station == s && l[i].areaType == t && l[i].address == a)
            return i;
    return l.size();
}

QByteArray dataOf(int s, int t, int a)
{
    const int i = linearFind(s, t, a);
    return i < PLC_driver.extendList.size() ? PLC_driver.extendList[i].data : QByteArray("none");
}

void answer(int station, int type, int address, QByteArray data)
{
    Protocol p;
    p.var.station = station;
    p.var.areaType = type;
    p.var.address = address;
    p.replyHeaderLength = 3;
    p.replyDataLength = data.size();
    PLC_driver.sendQueue.clear();
    PLC_driver.sendQueue.append(p);
    QByteArray reply = QByteArray("\x01\x03\x00", 3) + data;
    SaveToLocalDataErea(&reply);
}

}  // namespace

TEST(Store, IndexedLookupMatchesLinearWalk)
{
    resetDriver();
    std::srand(7);
    int planted = -1;
    for (int i = 0; i < 6000; ++i) {
        const int s = std::rand() % 4, t = std::rand() % 26, a = std::rand() % 40;
        const int expected = linearFind(s, t, a);
        ASSERT_EQ(expected, ExtendFindSameVar(s, t, a)) << i;
        if (i == 3000) {  // an entry added behind the index's back is still found first
            EXTENDVAR e;
            e.station = 9;
            planted = PLC_driver.extendList.size();
            PLC_driver.extendList.append(e);
        }
    }
    const int size = PLC_driver.extendList.size();
    EXPECT_EQ(planted, ExtendFindSameVar(9, 0, 0));
    EXPECT_EQ(size, PLC_driver.extendList.size());
    EXPECT_EQ(QByteArray(4, '\0'), PLC_driver.extendList[0].data);
}

TEST(Store, RepliesAndWritesPerStation)
{
    ComInfo *info = resetDriver();
    info->multiStation = 1;
    answer(1, 14, 100, QByteArray("\x12\x34", 2));
    answer(2, 14, 100, QByteArray("\x56\x78", 2));
    EXPECT_EQ(QByteArray("\x34\x12", 2), dataOf(1, 14, 100));
    EXPECT_EQ(QByteArray("\x78\x56", 2), dataOf(2, 14, 100));
    answer(1, 2, 16, QByteArray("\x05\x80", 2));
    EXPECT_EQ(QByteArray("\x05", 1), dataOf(1, 2, 16));
    EXPECT_EQ(QByteArray("\x80", 1), dataOf(1, 2, 24));
    EXPECT_EQ(4, PLC_driver.extendList.size());
    answer(1, 30, 0, QByteArray(2, '\x01'));
    answer(1, 18, 30, QByteArray(8, '\x01'));  // ETD has words 0..31 only
    EXPECT_EQ(6, PLC_driver.extendList.size());
    EXPECT_EQ(QByteArray("none"), dataOf(1, 18, 32));

    // A short reply leaves the entry empty; a bit write then keeps it empty.
    PLC_driver.sendQueue[0].var.areaType = 3;
    PLC_driver.sendQueue[0].var.address = 0;
    PLC_driver.sendQueue[0].replyDataLength = 4;
    QByteArray shortReply("\x01\x01\x00\xFF", 4);
    SaveToLocalDataErea(&shortReply);
    EXPECT_EQ(QByteArray(), dataOf(1, 3, 8));
    RW_VAR w;
    w.station = 1;
    w.areaType = 3;
    w.address = 9;
    w.count = 2;
    w.value = QByteArray("\x01\x01", 2);
    WriteDataToLocal(&w);
    EXPECT_EQ(QByteArray(), dataOf(1, 3, 8));
    w.address = 2;  // group 0 holds 0xFF from the reply: bit 2 on, bit 3 cleared
    w.value = QByteArray("\x01\x02", 2);
    WriteDataToLocal(&w);
    EXPECT_EQ(QByteArray("\xF7", 1), dataOf(1, 3, 0));

    w.areaType = 15;
    w.address = 574;
    w.count = 5;  // cut at TD's end: words 574 and 575
    w.value = QByteArray("\x01\x02\x03\x04\x05\x06", 6);
    const int before = PLC_driver.extendList.size();
    WriteDataToLocal(&w);
    EXPECT_EQ(before + 2, PLC_driver.extendList.size());
    EXPECT_EQ(QByteArray("\x03\x04", 2), dataOf(1, 15, 575));
    EXPECT_EQ(0, PLC_driver.localArea.localTD[575]);
}
