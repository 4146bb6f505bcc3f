// The per-station store: lookup equal to a walk of the list, stored replies
// and writes per station, and the bounds of the store's keys.
#include <cstdlib>

#include <gtest/gtest.h>

#include "localarea/store.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/stored_reply.h"

namespace {

int linearFind(int s, int t, int a)
{
    const QList<EXTENDVAR> &l = PLC_driver.extendList;
    int i = 0;
    while (i < l.size() && !(l[i].station == s && l[i].areaType == t && l[i].address == a))
        ++i;
    return i;
}

QByteArray dataOf(int s, int t, int a)
{
    const int i = linearFind(s, t, a);
    return i < PLC_driver.extendList.size() ? PLC_driver.extendList[i].data : QByteArray("none");
}

}  // namespace

TEST(Store, IndexedLookupMatchesLinearWalk)
{
    resetDriver();
    std::srand(7);
    int planted = -1;
    EXPECT_EQ(0, ExtendFindSameVar(300, 1, 1));  // a key kept whole, at index 0
    for (int i = 0; i < 6000; ++i) {
        // Stations past 255 and addresses past 65535 (or below 0) are
        // indexed apart from the others.
        const int s = std::rand() % 5 * 100 - 100, t = std::rand() % 26,
                  a = std::rand() % 40 + (std::rand() % 4 ? 0 : 65500);
        ASSERT_EQ(linearFind(s, t, a), ExtendFindSameVar(s, t, a)) << i;
        if (i == 3000) {  // an entry added behind the index's back is still found
            planted = PLC_driver.extendList.size();
            PLC_driver.extendList.append(EXTENDVAR());
            PLC_driver.extendList.last().station = 9;
        }
    }
    const int size = PLC_driver.extendList.size();
    EXPECT_EQ(0, ExtendFindSameVar(300, 1, 1));  // through every growth of the index
    EXPECT_EQ(planted, ExtendFindSameVar(9, 0, 0));
    EXPECT_EQ(size, PLC_driver.extendList.size());
    PLC_driver.extendList = QList<EXTENDVAR>() << EXTENDVAR() << EXTENDVAR();  // replaced
    EXPECT_EQ(2, ExtendFindSameVar(9, 0, 0));
}

TEST(Store, RepliesAndWritesPerStation)
{
    resetDriver()->multiStation = 1;
    storeReply(1, 14, 100, QByteArray("\x12\x34\x56\x78", 4));
    storeReply(2, 14, 100, QByteArray("\x56\x78", 2));
    EXPECT_EQ(QByteArray("\x34\x12", 2), dataOf(1, 14, 100));
    EXPECT_EQ(QByteArray("\x78\x56", 2), dataOf(2, 14, 100));
    QByteArray two;
    GetRegisterData(QString(), 14, "100", 1, &two, 2);
    EXPECT_EQ(QByteArray("\x34\x12\x78\x56", 4), two);
    storeReply(1, 2, 16, QByteArray("\x05\x80", 2));
    EXPECT_EQ(QByteArray("\x05", 1), dataOf(1, 2, 16));
    EXPECT_EQ(QByteArray("\x80", 1), dataOf(1, 2, 24));
    storeReply(1, 30, 0, QByteArray(2, '\x01'));
    storeReply(1, 18, 30, QByteArray(8, '\x01'));  // ETD has words 0..31 only
    EXPECT_EQ(7, PLC_driver.extendList.size());
    storeReply(1, 3, 0, QByteArray("\xFF", 1), 6);  // groups 24..40 get no byte
    EXPECT_EQ(QByteArray(), dataOf(1, 3, 40));
    storeReply(1, 14, 200, QByteArray("\x12\x34", 2), 6);  // word 201 takes the CRC bytes
    EXPECT_EQ(QByteArray("\xBB\xAA", 2), dataOf(1, 14, 201));
    EXPECT_EQ(QByteArray(), dataOf(1, 14, 202));
    Protocol bare;  // a reply with no header: its data from byte 0
    bare.var.station = 1;
    bare.var.areaType = 14;
    bare.var.address = 300;
    bare.replyDataLength = 2;
    PLC_driver.sendQueue = QList<Protocol>() << bare;
    QByteArray data("\x12\x34\xAA\xBB", 4);
    SaveToLocalDataErea(&data);
    EXPECT_EQ(QByteArray("\x34\x12", 2), dataOf(1, 14, 300));
    PLC_driver.sendQueue.first().var.areaType = 2;  // bits: M296..M303
    PLC_driver.sendQueue.first().var.address = 296;
    SaveToLocalDataErea(&data);
    EXPECT_EQ(QByteArray("\x12", 1), dataOf(1, 2, 296));

    RW_VAR w = request(3, 41, 2, 1, QByteArray("\x01\x02", 2));
    WriteDataToLocal(&w);  // an entry a reply left empty stays empty
    EXPECT_EQ(QByteArray(), dataOf(1, 3, 40));
    w.address = 2;  // group 0 holds 0xFF: bit 2 stays, bit 3 is cleared
    WriteDataToLocal(&w);
    EXPECT_EQ(QByteArray("\xF7", 1), dataOf(1, 3, 0));
    w.address = 4;
    w.count = 1;  // the value's second byte is not written to bit 5
    WriteDataToLocal(&w);
    EXPECT_EQ(QByteArray("\xF7", 1), dataOf(1, 3, 0));

    w = request(15, 574, 5, 1, QByteArray("\x01\x02\x03\x04\x05\x06", 6));  // cut at TD's end
    const int before = PLC_driver.extendList.size();
    WriteDataToLocal(&w);
    EXPECT_EQ(before + 2, PLC_driver.extendList.size());
    EXPECT_EQ(QByteArray("\x03\x04", 2), dataOf(1, 15, 575));
    EXPECT_EQ(0, PLC_driver.localArea.localTD[575]);
}

// Station numbers outside 0..255 are kept off the index's slots; replies
// and writes read back per station all the same.
TEST(Store, ValuesReadBackForAnyStationNumber)
{
    resetDriver()->multiStation = 1;
    const struct {
        int station;
        const char *reply;
        const char *word;
        const char *bits;
    } rows[] = {{0, "\x01\x02", "\x02\x01", "\x01\x00"},
                {255, "\x03\x04", "\x04\x03", "\x00\x01"},
                {256, "\x05\x06", "\x06\x05", "\x01\x01"},
                {-1, "\x07\x08", "\x08\x07", "\x00\x00"}};
    for (const auto &r : rows) {
        storeReply(r.station, 14, 7, QByteArray(r.reply, 2));
        storeReply(r.station, 2, 8, QByteArray(1, char(r.bits[0] | r.bits[1] << 1)));
    }
    for (const auto &r : rows) {
        QByteArray word, bits;
        GetRegisterData(QString(), 14, "7", r.station, &word, 1);
        GetRegisterData(QString(), 2, "8", r.station, &bits, 2);
        EXPECT_EQ(QByteArray(r.word, 2), word) << r.station;
        EXPECT_EQ(QByteArray(r.bits, 2), bits) << r.station;
        RW_VAR w = request(14, 7, 1, r.station, QByteArray("\x5A\xA5", 2));
        WriteDataToLocal(&w);
        GetRegisterData(QString(), 14, "7", r.station, &word, 1);
        EXPECT_EQ(QByteArray("\x5A\xA5", 2), word) << r.station;
    }
    EXPECT_EQ(8, PLC_driver.extendList.size());
}
