// The polling loop end to end: the driver's frames go over a pseudo-terminal
// to a libmodbus controller and its answers come back through DataCom.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <QList>
#include <QMap>

#include "driver/locks.h"
#include "frames/address_map.h"
#include "support/driver_reset.h"
#include "support/pty_peer.h"

namespace {

QList<int> calls;
void record(int, int ownerType, int ownerId, int status)
{
    calls << ownerType << ownerId << status;
}

RW_VAR block(int areaType, int address, int count)
{
    RW_VAR v;
    v.areaType = areaType;
    v.address = address;
    v.count = count;
    v.station = 1;
    v.ownerId = -1;
    return v;
}

RW_VAR onceRead(const char *area, int areaType, const char *address, int count, int ownerId)
{
    RW_VAR v;
    v.areaName = area;
    v.areaType = areaType;
    v.addressText = address;
    v.count = count;
    v.ownerType = 1;
    v.ownerId = ownerId;
    return v;
}

int pendingWork()
{
    MutexHold hold(PLC_driver.listMutex);
    return PLC_driver.writeList.size() + PLC_driver.onceReadList.size();
}

QByteArray get(int areaType, const char *address, int count)
{
    QByteArray out;
    GetRegisterData(QString(), areaType, address, 1, &out, count);
    return out;
}

}  // namespace

TEST(PollingLoop, RoadOfOneWrite)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    resetDriver();
    QByteArray value("\x34\x12", 2);
    EXPECT_EQ(SetRegisterData("D", 14, "100", 1, &value, 1, 0, 0), 1);
    EXPECT_EQ(pollOnce(peer), 1);
    const std::vector<uint8_t> sent = peer.server().lastRequest();
    const std::vector<uint8_t> expected = {0x01, 0x06, 0x00, 0x64, 0x12, 0x34, 0xC5, 0x62};
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(peer.server().reg(100), 0x1234);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());

    // The controller changes it; the next cyclic read brings it home.
    peer.server().setRegister(100, 0xBEEF);
    RW_VAR r = block(14, 100, 1);
    AddListReadVar(&r);
    EXPECT_EQ(pollOnce(peer), 1);
    EXPECT_EQ(get(14, "100", 1), QByteArray("\xEF\xBE", 2));
}

TEST(PollingLoop, CyclicReadsWritesAndOneOffReadsMixed)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ComInfo *info = resetDriver();
    calls.clear();
    RegistCallBackFuncIntf(record, 0);
    ModbusServer &plc = peer.server();
    for (int i = 0; i < 64; ++i)
        plc.setRegister(i, uint16_t(1000 + i));
    plc.setRegister(300, 0x0A0B);
    RW_VAR cyclic = block(14, 0, 64);
    AddListReadVar(&cyclic);
    for (int i = 0; i < 12; ++i) {  // more than one burst of writes
        QByteArray v;
        v.append(char(i)).append(char(0x50));
        SetRegisterData("D", 14, QString::number(200 + i), 1, &v, 1, 0, 0);
    }
    QByteArray bits("\x01\x00\x01", 3);
    SetRegisterData("M", 2, "100", 1, &bits, 3, 0, 0);
    RW_VAR once = onceRead("D", 14, "300", 1, 11);
    AddListOnceReadVar(&once, 0);
    RW_VAR onceX = onceRead("X", 0, "10010", 12, 12);  // two one-byte pieces
    AddListOnceReadVar(&onceX, 0);

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
    EXPECT_EQ(calls, QList<int>() << 1 << 11 << 1 << 1 << 12 << 1);
}

TEST(PollingLoop, FaultsGiveBandCodesThenTheLoopRecovers)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ComInfo *info = resetDriver();
    info->retryLimit = 2;
    calls.clear();
    RegistCallBackFuncIntf(record, 0);
    ModbusServer &plc = peer.server();
    plc.setRegister(5, 0x0505);
    RW_VAR cyclic = block(14, 5, 1);
    AddListReadVar(&cyclic);

    struct Case {
        ModbusServer::Fault fault;
        int base;
    } cases[] = {{ModbusServer::FaultDrop, 40},
                 {ModbusServer::FaultBadCrc, 10},
                 {ModbusServer::FaultTruncate, 70}};
    for (const Case &c : cases) {
        RW_VAR once = onceRead("D", 14, "5", 1, c.base);
        once.ownerType = 3;
        AddListOnceReadVar(&once, 0);
        QByteArray v("\x01\x00", 2);
        SetRegisterData("D", 14, "6", 1, &v, 1, 0, 0);
        // The write goes first; it fails three times and is given up, which
        // drops the one-off read behind it without a call-back.
        plc.failNext(c.fault, 3);
        EXPECT_EQ(pollOnce(peer, 150), 0);
        EXPECT_EQ(pollOnce(peer, 150), 0);
        EXPECT_EQ(pollOnce(peer, 150), c.base + 1);
        EXPECT_EQ(pendingWork(), 0);
        EXPECT_TRUE(calls.isEmpty());

        // A one-off read given up calls its requester back with status 2.
        AddListOnceReadVar(&once, 0);
        plc.failNext(c.fault, 3);
        pollOnce(peer, 150);
        pollOnce(peer, 150);
        EXPECT_EQ(pollOnce(peer, 150), c.base + 1 + 3);
        EXPECT_EQ(calls, QList<int>() << 3 << c.base << 2);
        calls.clear();

        // Clean line again: polling and writing work.
        EXPECT_EQ(pollOnce(peer), 1);
        EXPECT_EQ(get(14, "5", 1), QByteArray("\x05\x05", 2));
        EXPECT_EQ(SetRegisterData("D", 14, "6", 1, &v, 1, 0, 0), 1);
        EXPECT_EQ(pollOnce(peer), 1);
        EXPECT_EQ(plc.reg(6), 1);
        plc.setRegister(6, 0);
    }
}

TEST(PollingLoop, NoWriteLostWhileOtherThreadsWork)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    // A slow peer (Valgrind, sanitizers) must not make the driver give a
    // frame up: a give-up drops pending writes by design, which is not
    // what this test is about.
    resetDriver()->retryLimit = 1 << 30;
    RW_VAR cyclic = block(14, 0, 32);
    AddListReadVar(&cyclic);

    std::atomic<bool> stopWriters(false), stopLoop(false);
    std::atomic<int> rounds(0);
    std::thread loop([&] {
        while (!stopLoop) {
            if (pollOnce(peer, 1000) < 0)
                std::this_thread::yield();
            ++rounds;
        }
    });

    QMap<int, int> lastSet, lastQueued;  // each owned by one writer thread
    std::thread setter([&] {
        for (int n = 0; !stopWriters; ++n) {
            const int address = 100 + n % 20;
            QByteArray v;
            v.append(char(n & 0xFF)).append(char((n >> 8) & 0x7F));
            SetRegisterData("D", 14, QString::number(address), 1, &v, 1, 0, 0);
            lastSet[address] = (n & 0xFF) | (((n >> 8) & 0x7F) << 8);
        }
    });
    std::thread queuer([&] {
        for (int n = 0; !stopWriters; ++n) {
            RW_VAR w = block(14, 200 + n % 10, 1);
            w.rwMode = 1;
            w.value.append(char(n & 0xFF)).append(char(0x11));
            AddListWriteVar(&w, 0);
            lastQueued[200 + n % 10] = (n & 0xFF) | 0x1100;
        }
    });
    std::thread oncer([&] {
        for (int n = 0; !stopWriters; ++n) {
            RW_VAR o = onceRead("D", 14, "0", 4, n % 7);
            AddListOnceReadVar(&o, 0);
            std::this_thread::yield();
        }
    });
    std::thread reader([&] {
        while (!stopWriters)
            get(14, "0", 32);
    });

    // Long enough for plenty of polling rounds, however slow the machine.
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < std::chrono::seconds(30) &&
           (rounds < 40 || std::chrono::steady_clock::now() - begin < std::chrono::seconds(2)))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    stopWriters = true;
    setter.join();
    queuer.join();
    oncer.join();
    reader.join();
    for (int i = 0; i < 3000 && pendingWork() > 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const int left = pendingWork();
    stopLoop = true;
    loop.join();

    EXPECT_EQ(left, 0);
    EXPECT_GT(rounds.load(), 20);
    for (QMap<int, int>::const_iterator it = lastSet.constBegin(); it != lastSet.constEnd(); ++it)
        EXPECT_EQ(peer.server().reg(it.key()), it.value()) << "D" << it.key();
    for (QMap<int, int>::const_iterator it = lastQueued.constBegin(); it != lastQueued.constEnd(); ++it)
        EXPECT_EQ(peer.server().reg(it.key()), it.value()) << "D" << it.key();
}

namespace {

VarInfo variable(const char *area, int areaType, const char *address, int count, int station)
{
    VarInfo v;
    v.areaName = area;
    v.areaType = (unsigned char)areaType;
    v.addressText = address;
    v.count = count;
    v.station = (unsigned char)station;
    return v;
}

}  // namespace

TEST(PollingLoop, RebuiltListReadsEveryVariable)
{
    const QList<VarInfo> vars = QList<VarInfo>()
        << variable("D", 14, "0", 1, 1) << variable("D", 14, "5", 4, 2)
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
        for (int a = 0; a < 65536; a += 1) {
            plc.setRegister(a, uint16_t(a * 7 + 3));
            plc.setCoil(a, (a * 5) % 3 == 0);
        }
        ComInfo *info = resetDriver();
        info->multiStation = multi;
        info->blockUnits = 8;
        QList<VarInfo> list = vars;
        ASSERT_GT(ReCreatReadVarList(&list), 0);
        const int blocks = PLC_driver.readList.size();
        for (int round = 0; round < blocks; ++round)
            ASSERT_EQ(pollOnce(peer), 1) << "multiStation " << multi << " round " << round;

        for (const VarInfo &v : vars) {
            const int station = multi ? v.station : 1;
            const int start = StringAddressToInt(v.areaType, v.addressText);
            QByteArray out;
            GetRegisterData(QString(), v.areaType, v.addressText, station, &out, v.count);
            ASSERT_EQ(out.size(), v.areaType < 14 ? v.count : 2 * v.count);
            for (int i = 0; i < v.count; ++i) {
                if (v.areaType < 14) {
                    const int coil = BitElementToCoil(v.areaType, start + i);
                    EXPECT_EQ(out.at(i), char(plc.coil(coil))) << v.areaName.toStdString() << start + i;
                } else {
                    const int reg = WordElementToRegister(v.areaType, start + i) & 0xFFFF;
                    const int got = (unsigned char)out.at(2 * i) | ((unsigned char)out.at(2 * i + 1) << 8);
                    EXPECT_EQ(got, plc.reg(reg)) << v.areaName.toStdString() << start + i;
                }
            }
        }
        if (multi) {  // a station nobody polled reads as zero
            QByteArray out;
            GetRegisterData(QString(), 14, "100", 3, &out, 1);
            EXPECT_EQ(out, QByteArray(2, '\0'));
        }
    }
}
