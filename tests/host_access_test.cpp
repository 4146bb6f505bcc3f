// The runtime's direct reads and writes: both storage modes, both write
// modes, refused input and the area bounds.
#include <gtest/gtest.h>

#include "support/driver_reset.h"

namespace {

int get(int type, const char *addr, QByteArray &out, int count, int station = 1)
{
    return GetRegisterData(QString(), type, QString::fromLatin1(addr), station, &out, count);
}

int set(int type, const char *addr, QByteArray value, int count, int station = 1)
{
    return SetRegisterData("A", type, QString::fromLatin1(addr), station, &value, count, 3, 44);
}

}  // namespace

TEST(HostAccess, ReadsFromTheMirror)
{
    resetDriver();
    LocalArea &a = PLC_driver.localArea;
    a.localX[1] = 0x80;  // element 15 = octal 17; bit 1 of byte 2 is octal 21
    a.localX[2] = 0x02;
    a.localD[0] = 0xBEEF;
    a.localD[7999] = 0x0102;
    QByteArray out, keep("keep");
    EXPECT_EQ(1, get(0, "17", out, 3));
    EXPECT_EQ(QByteArray("\x01\x00\x01", 3), out);
    QByteArray one;
    EXPECT_EQ(1, get(0, "21", one, 1));
    EXPECT_EQ(QByteArray("\x01", 1), one);
    EXPECT_EQ(1, get(14, "7999", out, 0x7FFFFFFF));  // cut at D's end
    EXPECT_EQ(QByteArray("\x02\x01\x01", 3), out);
    EXPECT_EQ(1, get(14, "abc", out, 1));
    EXPECT_EQ(QByteArray("\xEF\xBE\x01", 3), out);
    EXPECT_EQ(0, get(14, "-1", keep, 1));
    EXPECT_EQ(1, get(26, "0", keep, 1) & get(14, "0", keep, -5) & get(14, "8000", keep, 1));
    EXPECT_EQ(QByteArray("keep"), keep);
    EXPECT_EQ(0, GetRegisterData(QString(), 14, "0", 1, nullptr, 1));
    int lb, lw, rwi;
    FlashLocalRegister(&lb, &lw, &rwi);
    EXPECT_TRUE(LB == &lb && LW == &lw && RWI == &rwi);
}

TEST(HostAccess, QueuedWritesSplitPadAndCut)
{
    ComInfo *info = resetDriver();
    info->blockUnits = 2;
    info->defaultStation = 7;
    info->localLinkNo = 6;
    const QList<RW_VAR> &q = PLC_driver.writeList;
    EXPECT_EQ(3, set(14, "100", QByteArray("\x00\x01\x02\x03\x04\x05\x06\x07\x08", 9), 5, 9));
    ASSERT_EQ(3, q.size());
    EXPECT_EQ(102, q[1].address);
    EXPECT_EQ(QByteArray("\x04\x05\x06\x07", 4), q[1].value);
    EXPECT_EQ(QByteArray("\x08\x00", 2), q[2].value);  // one word, padded
    EXPECT_TRUE(q[2].station == 7 && q[2].linkNo == 6 && q[2].ownerType == 3);

    resetDriver()->blockUnits = 0;
    info->remoteLink = 1;
    EXPECT_EQ(1, set(14, "7998", QByteArray(), 1000));  // one block, cut to 2 words
    EXPECT_EQ(2, q[0].count);
    EXPECT_EQ(QByteArray(4, '\0'), q[0].value);
    EXPECT_EQ(4, set(2, "10", QByteArray("\x01\x00\x01", 3), 3));
    EXPECT_EQ(11, q[2].address);
    EXPECT_EQ(QByteArray("\x01", 1), q[3].value);
    EXPECT_TRUE(q[3].count == 1 && q[3].remoteLink == 1);
    EXPECT_EQ(5, set(1, "7", "\x01", 1));  // Y is written, X and SEM are not
    EXPECT_EQ(0, set(0, "0", "\x01", 1) | set(13, "0", "\x01", 1) | set(14, "0", "", -1));
    EXPECT_EQ(0, set(14, "8000", "", 1) | SetRegisterData("D", 14, "0", 1, nullptr, 1, 0, 0));
    EXPECT_EQ(5, q.size());

    setCommError(true);  // a silent controller: the value shows at once
    set(15, "5", QByteArray("\x34\x12", 2), 1);
    setCommError(false);
    EXPECT_EQ(0x1234, PLC_driver.localArea.localTD[5]);
}

TEST(HostAccess, LocalOnlyWritesPerStation)
{
    ComInfo *info = resetDriver();
    info->writeMode = 0;
    EXPECT_EQ(1, set(0, "0", "\x01", 1) & set(40, "0", "\x01", 1));
    EXPECT_EQ(1, PLC_driver.localArea.localX[0]);
    EXPECT_EQ(1, set(25, "47", "\x01\x02\x03\x04", 2));  // cut at FS's end
    EXPECT_EQ(0x0201, PLC_driver.localArea.localFS[47]);

    info->multiStation = 1;
    QByteArray out;
    set(14, "100", "\x34\x12", 1, 3);
    set(2, "9", "\x01", 1, 3);  // a new group starts at zero
    EXPECT_EQ(1, get(14, "100", out, 1, 3));
    EXPECT_EQ(QByteArray("\x34\x12", 2), out);
    EXPECT_EQ(1, get(2, "8", out, 3, 3));
    EXPECT_EQ(QByteArray("\x00\x01\x00", 3), out);
    get(2, "7990", out, 100, 3);  // cut at M's end: no keys past it
    for (int i = 0; i < PLC_driver.extendList.size(); ++i)
        EXPECT_LT(PLC_driver.extendList[i].address, 8000);
}
