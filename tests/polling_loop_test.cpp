// The polling loop end to end: the driver's frames go over a pseudo-terminal
// to a libmodbus controller and its answers come back through DataCom.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

#include <QList>
#include <QMap>

#include "driver/locks.h"
#include "frames/address_map.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/pty_peer.h"
#include "support/variable.h"

namespace {

QList<int> calls;
void record(int, int ownerType, int ownerId, int status)
{
    calls << ownerType << ownerId << status;
}

// A one-off read of D`address` as the runtime asks for it.
RW_VAR onceRead(const char *address, int ownerType, int ownerId)
{
    RW_VAR v;
    v.areaType = 14;
    v.addressText = address;
    v.count = 1;
    v.ownerType = ownerType;
    v.ownerId = ownerId;
    return v;
}

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

TEST(PollingLoop, FaultsGiveBandCodesThenMixedTrafficFlowsAgain)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ComInfo *info = resetDriver();
    info->retryLimit = 2;
    calls.clear();
    RegistCallBackFuncIntf(record, 0);
    ModbusServer &plc = peer.server();
    for (int i = 0; i < 64; ++i)
        plc.setRegister(i, uint16_t(1000 + i));
    plc.setRegister(300, 0x0A0B);
    RW_VAR cyclic = request(14, 0, 64);
    AddListReadVar(&cyclic);

    // Three failures in a row: two retries, then the give-up code of the band.
    auto threeFailures = [&](ModbusServer::Fault fault) {
        plc.failNext(fault, 3);
        QList<int> codes;
        for (int i = 0; i < 3; ++i)
            codes << pollOnce(peer, 150);
        return codes;
    };
    for (const auto &c : {std::make_pair(ModbusServer::FaultDrop, 40),
                          std::make_pair(ModbusServer::FaultBadCrc, 10),
                          std::make_pair(ModbusServer::FaultTruncate, 70)}) {
        RW_VAR once = onceRead("300", 3, c.second);
        AddListOnceReadVar(&once, 0);
        QByteArray v("\x01\x00", 2);
        SetRegisterData("D", 14, "400", 1, &v, 1, 0, 0);
        // The write goes first and is given up, which drops the one-off read
        // behind it without a call-back.
        EXPECT_EQ(threeFailures(c.first), QList<int>({0, 0, c.second + 1}));
        EXPECT_EQ(pendingWork(), 0);
        EXPECT_TRUE(calls.isEmpty());
        // A one-off read given up calls its requester back with status 2.
        AddListOnceReadVar(&once, 0);
        EXPECT_EQ(threeFailures(c.first), QList<int>({0, 0, c.second + 1 + 3}));
        EXPECT_EQ(calls, QList<int>({3, c.second, 2}));
        calls.clear();
    }

    // Clean line again: writes (more than one burst), a one-off read and the
    // cyclic block all get through, and the requester hears status 1.
    for (int i = 0; i < 12; ++i) {
        QByteArray v = QByteArray().append(char(i)).append(char(0x50));
        SetRegisterData("D", 14, QString::number(200 + i), 1, &v, 1, 0, 0);
    }
    QByteArray bits("\x01\x00\x01", 3);
    SetRegisterData("M", 2, "100", 1, &bits, 3, 0, 0);
    RW_VAR once = onceRead("300", 1, 11);
    AddListOnceReadVar(&once, 0);
    // scanComplete counts good replies of any kind, so it says nothing of
    // the cyclic block yet; one more read after the queues drain.
    for (int round = 0; round < 40 && pendingWork() > 0; ++round)
        ASSERT_EQ(pollOnce(peer), 1) << "round " << round;
    ASSERT_EQ(pollOnce(peer), 1);
    EXPECT_EQ(info->scanComplete, 1);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(plc.reg(200 + i), 0x5000 + i);
    EXPECT_TRUE(plc.coil(100) && !plc.coil(101) && plc.coil(102));
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(PLC_driver.localArea.localD[i], 1000 + i);
    EXPECT_EQ(get(14, "300", 1), QByteArray("\x0B\x0A", 2));
    EXPECT_EQ(calls, QList<int>({1, 11, 1}));
}

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
            RW_VAR o = onceRead("0", 1, n % 7);
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
    const QList<VarInfo> vars =
        QList<VarInfo>() << variable("D", 14, "0", 1, 1) << variable("D", 14, "5", 4, 2)
                         << variable("D", 14, "100", 70, 1) << variable("TD", 15, "3", 1, 2)
                         << variable("FS", 25, "47", 1, 1) << variable("HSD", 24, "490", 10, 1)
                         << variable("M", 2, "3", 1, 1) << variable("M", 2, "5", 2, 2)
                         << variable("M", 2, "40", 30, 1) << variable("S", 3, "1021", 3, 1)
                         << variable("X", 0, "0", 16, 1) << variable("X", 0, "60", 8, 2)
                         << variable("Y", 1, "10000", 8, 1) << variable("SEM", 13, "30", 2, 2);
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
        QList<VarInfo> list = vars;
        ASSERT_GT(ReCreatReadVarList(&list), 0);
        for (int round = 0; round < PLC_driver.readList.size(); ++round)
            ASSERT_EQ(pollOnce(peer), 1) << "multiStation " << multi << " round " << round;

        for (const VarInfo &v : vars) {
            const int start = StringAddressToInt(v.areaType, v.addressText);
            const QByteArray out = get(v.areaType, v.addressText, v.count, multi ? v.station : 1);
            const bool bits = v.areaType < 14;
            ASSERT_EQ(out.size(), bits ? v.count : 2 * v.count);
            for (int i = 0; i < v.count; ++i) {
                const int got =
                    bits ? out.at(i) : uchar(out.at(2 * i)) | uchar(out.at(2 * i + 1)) << 8;
                const int want =
                    bits ? plc.coil(BitElementToCoil(v.areaType, start + i))
                         : plc.reg(WordElementToRegister(v.areaType, start + i) & 0xFFFF);
                EXPECT_EQ(got, want) << v.areaName.toStdString() << start + i;
            }
        }
        if (multi) {  // a station nobody polled reads as zero
            EXPECT_EQ(get(14, "100", 1, 3), QByteArray(2, '\0'));
        }
    }
}
