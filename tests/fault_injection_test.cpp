// A misbehaving line at 1%, 10% and 50% for each kind of fault the
// controller stand-in can inject. Whatever the line does, the loop keeps
// going, errors come out in the band of their kind, no write is lost that
// a give-up did not drop, every one-off read is answered or dropped by a
// give-up, and polling is exact again once the line is clean.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include <QMap>
#include <QSet>

#include "frames/address_map.h"
#include "support/driver_reset.h"
#include "support/pty_peer.h"

namespace {

const int TimeoutMs = 40;  // generous for loaded sanitizer runs
const int WriteOwner = 3;  // ownerType of writes: error codes base + 4
const int OnceOwner = 5;   // ownerType of one-off reads: base + 6

QMap<int, int> callBacks;  // ownerId -> status
int callBackRepeats;
void onCallBack(int, int ownerType, int ownerId, int status)
{
    if (ownerType != OnceOwner || callBacks.contains(ownerId) || (status != 1 && status != 2))
        ++callBackRepeats;
    callBacks[ownerId] = status;
}

// Error bands a fault may produce: 1 check failed, 4 no reply, 7 wrong length.
int bandOf(int code)
{
    return code >= 11 && code <= 82 ? code / 10 : 0;
}

struct Run {
    ModbusServer::Fault fault;
    double rate;
    QSet<int> bands;  // error bands this fault may cause
};

void runFaultyLine(const Run &run)
{
    SCOPED_TRACE(testing::Message() << "fault " << run.fault << " rate " << run.rate);
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ModbusServer &plc = peer.server();
    ComInfo *info = resetDriver();
    info->blockUnits = 16;
    info->retryLimit = 2;
    callBacks.clear();
    callBackRepeats = 0;
    RegistCallBackFuncIntf(onCallBack, 7);
    for (int a = 0; a < 32; ++a)
        plc.setRegister(WordElementToRegister(14, a), quint16(0x100 + a));

    QList<VarInfo> vars;
    VarInfo d;
    d.areaType = 14;
    d.station = 1;
    d.areaName = "D";
    d.addressText = "0";
    d.count = 32;
    vars << d;
    ReCreatReadVarList(&vars);
    ASSERT_GT(PLC_driver.readList.size(), 0);

    ModbusServer::FaultRates rates;
    rates.seed = 11;
    rates.delayMs = 3 * TimeoutMs;
    switch (run.fault) {
    case ModbusServer::FaultDrop: rates.drop = run.rate; break;
    case ModbusServer::FaultBadCrc: rates.badCrc = run.rate; break;
    case ModbusServer::FaultTruncate: rates.truncate = run.rate; break;
    case ModbusServer::FaultWrongStation: rates.wrongStation = run.rate; break;
    default: rates.delay = run.rate; break;
    }
    plc.setFaults(rates);

    // Writes to D40..D47 and one-off reads, queued between polling rounds.
    QMap<int, int> lastValue, queuedAt;
    QList<int> onceIds;
    int lastGiveUp = -1, errors = 0;
    for (int round = 0; round < 150; ++round) {
        if (round % 3 == 0) {
            const int a = 40 + round % 8;
            QByteArray v;
            v.append(char(round & 0xFF)).append(char(round >> 8));
            SetRegisterData("D", 14, QString::number(a), 1, &v, 1, WriteOwner, round);
            lastValue[a] = round;
            queuedAt[a] = round;
        }
        if (round % 10 == 5) {
            RW_VAR once;
            once.areaName = "D";
            once.areaType = 14;
            once.addressText = "3";
            once.count = 2;
            once.ownerType = OnceOwner;
            once.ownerId = round;
            AddListOnceReadVar(&once, 0);
            onceIds << round;
        }
        const int code = pollOnce(peer, TimeoutMs);
        ASSERT_NE(code, -1) << "nothing to send with a cyclic list: the loop stalled";
        if (code == 0 || code == 1)
            continue;
        ++errors;
        lastGiveUp = round;
        EXPECT_TRUE(run.bands.contains(bandOf(code))) << "code " << code;
    }
    const ModbusServer::Counters seen = plc.counters();
    if (run.rate >= 0.1) {
        EXPECT_GT(seen.faults, 0u) << "the line never misbehaved";
    }
    static const char *const names[] = {"none", "drop", "bad CRC", "truncate", "wrong station",
                                        "delay"};
    std::printf("%-13s at %2.0f%%: %llu requests, %llu faults injected, %d given up\n",
                names[run.fault], run.rate * 100, (unsigned long long)seen.requests,
                (unsigned long long)seen.faults, errors);
    if (run.bands.isEmpty()) {
        EXPECT_EQ(errors, 0);
    }

    // Clean line: the queues drain, then one full cyclic pass reads exactly.
    // A late reply still owed is let through first, so it is not taken for
    // the answer to a later frame.
    plc.setFaults(ModbusServer::FaultRates());
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * rates.delayMs));
    for (int round = 0; round < 400 && !(PLC_driver.writeList.isEmpty() &&
                                         PLC_driver.onceReadList.isEmpty());
         ++round)
        EXPECT_EQ(pollOnce(peer, 200), 1);
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    for (int i = 0; i <= PLC_driver.readList.size(); ++i)
        EXPECT_EQ(pollOnce(peer, 200), 1);

    for (QMap<int, int>::const_iterator it = lastValue.constBegin(); it != lastValue.constEnd(); ++it) {
        const int reg = plc.reg(WordElementToRegister(14, it.key()));
        // Only a give-up after the last value was queued may have dropped it.
        if (reg != it.value()) {
            EXPECT_GE(lastGiveUp, queuedAt[it.key()]) << "write to D" << it.key() << " lost";
        }
    }
    for (int a = 0; a < 32; ++a) {
        QByteArray out;
        GetRegisterData(QString(), 14, QString::number(a), 1, &out, 1);
        EXPECT_EQ(out, QByteArray().append(char(a)).append(char(1))) << "D" << a;
    }
    // One-off reads: answered once each, or dropped by a give-up.
    EXPECT_EQ(callBackRepeats, 0);
    for (int i = 0; i < onceIds.size(); ++i) {
        if (!callBacks.contains(onceIds[i])) {
            EXPECT_GE(lastGiveUp, onceIds[i]) << "one-off read " << onceIds[i] << " vanished";
        } else if (callBacks[onceIds[i]] == 2) {
            EXPECT_GE(lastGiveUp, onceIds[i]);
        }
    }
    if (errors == 0) {
        EXPECT_EQ(callBacks.size(), onceIds.size());
    }
}

}  // namespace

TEST(FaultInjection, EachFaultAtOneTenAndFiftyPercent)
{
    const QSet<int> checkFailed = QSet<int>() << 1;
    const QSet<int> noReply = QSet<int>() << 4;
    // A truncated reply is short; a late one is missed, and its stale bytes
    // may then be taken for the next reply of another length.
    const QSet<int> wrongLength = QSet<int>() << 7;
    const QSet<int> late = QSet<int>() << 4 << 7 << 1;
    const double rates[] = {0.01, 0.10, 0.50};
    for (double rate : rates) {
        runFaultyLine({ModbusServer::FaultDrop, rate, noReply});
        runFaultyLine({ModbusServer::FaultBadCrc, rate, checkFailed});
        runFaultyLine({ModbusServer::FaultTruncate, rate, wrongLength});
        runFaultyLine({ModbusServer::FaultDelay, rate, late});
        // The reply checks look at length and CRC, not at the station byte:
        // a well-formed reply from another station is taken as good.
        runFaultyLine({ModbusServer::FaultWrongStation, rate, QSet<int>()});
    }
}
