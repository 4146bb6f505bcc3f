// The polling loop end to end: the driver's frames go over a pseudo-terminal
// to a libmodbus controller and its answers come back through DataCom.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <QList>
#include <QMap>

#include "driver/locks.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/pty_peer.h"
#include "support/variable.h"

namespace {

int pendingWork()
{
    MutexHold hold(PLC_driver.listMutex);
    return PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
}

QByteArray get(int areaType, const QString &address, int count, int station = 1)
{
    QByteArray out;
    GetRegisterData(QString(), areaType, address, station, &out, count);
    return out;
}

}  // namespace

TEST(PollingLoop, NoWriteLostWhileOtherThreadsWork)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    // A slow peer (Valgrind, sanitizers) must not make the driver give a
    // frame up: a give-up drops pending writes by design, which is not
    // what this test is about.
    resetDriver()->retryLimit = 1 << 30;
    RW_VAR cyclic = request(14, 0, 32);
    AddListReadVar(&cyclic);

    // The loop runs here while three threads queue writes and one-off reads
    // and read the mirror. They yield after each call so that a serialising
    // runner (Valgrind) still gives the loop its turns.
    std::atomic<bool> stop(false);
    QMap<int, int> lastSet, lastQueued;  // each owned by one writer thread
    std::thread setter([&] {
        for (int n = 0; !stop; ++n) {
            QByteArray v = QByteArray().append(char(n & 0xFF)).append(char((n >> 8) & 0x7F));
            SetRegisterData("D", 14, QString::number(100 + n % 20), 1, &v, 1, 0, 0);
            lastSet[100 + n % 20] = n & 0x7FFF;
            std::this_thread::yield();
        }
    });
    std::thread queuer([&] {
        for (int n = 0; !stop; ++n) {
            RW_VAR w =
                request(14, 200 + n % 10, 1, 1, QByteArray().append(char(n & 0xFF)).append('\x11'));
            w.rwMode = 1;
            AddListWriteVar(&w, 0);
            lastQueued[200 + n % 10] = (n & 0xFF) | 0x1100;
            std::this_thread::yield();
        }
    });
    std::thread oncer([&] {
        for (int n = 0; !stop; ++n) {
            RW_VAR o = request(14, "0", 1, 1, n % 7);
            AddListOnceReadVar(&o, 0);
            get(14, "0", 32);
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < 300; ++round)
        pollOnce(peer);
    stop = true;
    setter.join();
    queuer.join();
    oncer.join();
    for (int round = 0; round < 200 && pendingWork() > 0; ++round)
        pollOnce(peer);
    EXPECT_EQ(pendingWork(), 0);
    for (const QMap<int, int> &last : {lastSet, lastQueued})
        for (auto it = last.constBegin(); it != last.constEnd(); ++it)
            EXPECT_EQ(peer.server().reg(it.key()), it.value()) << "D" << it.key();
}

TEST(PollingLoop, RebuiltListReadsEveryVariable)
{
    // Each variable with the coil or register of its first element.
    const struct {
        VarInfo var;
        int first;
    } vars[] = {
        {variable("D", 14, "0", 1, 1), 0},         {variable("D", 14, "5", 4, 2), 5},
        {variable("D", 14, "100", 70, 1), 100},    {variable("TD", 15, "3", 1, 2), 0x8003},
        {variable("FS", 25, "47", 1, 1), 0xF4EF},  {variable("HSD", 24, "490", 10, 1), 0xBA6A},
        {variable("M", 2, "3", 1, 1), 3},          {variable("M", 2, "5", 2, 2), 5},
        {variable("M", 2, "40", 30, 1), 40},       {variable("S", 3, "1021", 3, 1), 0x73FD},
        {variable("X", 0, "0", 16, 1), 0x5000},    {variable("X", 0, "60", 8, 2), 0x5030},
        {variable("Y", 1, "10000", 8, 1), 0x6100}, {variable("SEM", 13, "30", 2, 2), 0xC09E}};
    for (int multi = 0; multi <= 1; ++multi) {
        PtyPeer peer;
        ASSERT_TRUE(peer.ok());
        ModbusServer &plc = peer.server();
        plc.setStations(std::vector<int>{1, 2});
        for (int a = 0; a < 65536; ++a) {
            plc.setRegister(a, uint16_t(a * 7 + 3));
            plc.setCoil(a, (a * 5) % 3 == 0);
        }
        ComInfo *info = resetDriver();
        info->multiStation = multi;
        info->blockUnits = 8;
        QList<VarInfo> list;
        for (const auto &v : vars)
            list << v.var;
        ASSERT_GT(ReCreatReadVarList(&list), 0);
        for (int round = 0; round < PLC_driver.readList.size(); ++round)
            ASSERT_EQ(pollOnce(peer), 1) << "multiStation " << multi << " round " << round;

        for (const auto &v : vars) {
            const VarInfo &var = v.var;
            const QByteArray out =
                get(var.areaType, var.addressText, var.count, multi ? var.station : 1);
            const bool bits = var.areaType < 14;
            ASSERT_EQ(out.size(), bits ? var.count : 2 * var.count);
            for (int i = 0; i < var.count; ++i) {
                const int got =
                    bits ? out.at(i) : uchar(out.at(2 * i)) | uchar(out.at(2 * i + 1)) << 8;
                const int want = bits ? plc.coil(v.first + i) : plc.reg(v.first + i);
                EXPECT_EQ(got, want)
                    << var.areaName.toStdString() << var.addressText.toStdString() << " + " << i;
            }
        }
        if (multi) {  // a station nobody polled reads as zero
            EXPECT_EQ(get(14, "100", 1, 3), QByteArray(2, '\0'));
        }
    }
}
