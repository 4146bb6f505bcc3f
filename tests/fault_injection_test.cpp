// A misbehaving line at 1%, 10% and 50% for each kind of fault the
// controller stand-in can inject. Whatever the line does, the loop keeps
// going, errors come out in the band of their kind, no write is lost that
// a give-up did not drop, every one-off read is answered or dropped by a
// give-up, and polling is exact again once the line is clean.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <thread>

#include <QMap>

#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/pty_peer.h"
#include "support/variable.h"

namespace {

typedef ModbusServer::FaultRates Rates;
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

struct FaultKind {
    const char *fault;
    double Rates::*share;
    std::set<int> bands;  // error bands it may cause: 1 check failed, 4 no reply, 7 wrong length
};

void runFaultyLine(const FaultKind &run, double rate)
{
    SCOPED_TRACE(testing::Message() << run.fault << " at " << rate);
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
        plc.setRegister(a, quint16(0x100 + a));  // D0 is register 0
    QList<VarInfo> vars = {variable("D", 14, "0", 32)};
    ReCreatReadVarList(&vars);
    Rates rates;
    rates.seed = 11;
    rates.delayMs = 3 * TimeoutMs;
    rates.*run.share = rate;
    plc.setFaults(rates);

    // Writes to D40..D47 and one-off reads of D3..D4 between polling rounds.
    RW_VAR once = request(14, "3", 2);
    once.ownerType = OnceOwner;
    QMap<int, int> lastValue;  // address -> round of its last write
    QList<int> onceIds;
    int lastGiveUp = -1, errors = 0;
    for (int round = 0; round < 150; ++round) {
        if (round % 3 == 0) {
            QByteArray v = QByteArray().append(char(round & 0xFF)).append(char(round >> 8));
            SetRegisterData("D", 14, QString::number(40 + round % 8), 1, &v, 1, WriteOwner, round);
            lastValue[40 + round % 8] = round;
        }
        if (round % 10 == 5) {
            RW_VAR v = once;
            v.ownerId = round;
            AddListOnceReadVar(&v, 0);
            onceIds << round;
        }
        const int code = pollOnce(peer, TimeoutMs);
        ASSERT_NE(code, -1) << "nothing to send with a cyclic list: the loop stalled";
        if (code == 0 || code == 1)
            continue;
        ++errors;
        lastGiveUp = round;
        EXPECT_TRUE(code >= 11 && code <= 82 && run.bands.count(code / 10)) << "code " << code;
    }
    const ModbusServer::Counters seen = plc.counters();
    EXPECT_TRUE(rate < 0.1 || seen.faults > 0) << "the line never misbehaved";
    EXPECT_TRUE(!run.bands.empty() || errors == 0) << errors << " given up";
    std::printf("%-13s at %2.0f%%: %llu requests, %llu faults injected, %d given up\n", run.fault,
                rate * 100, (unsigned long long)seen.requests, (unsigned long long)seen.faults,
                errors);

    // Clean line: the queues drain, then one full cyclic pass reads exactly.
    // A late reply still owed is let through first, so it is not taken for
    // the answer to a later frame.
    plc.setFaults(Rates());
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * rates.delayMs));
    auto drained = [] {
        return PLC_driver.writeList.isEmpty() && PLC_driver.onceReadList.isEmpty();
    };
    for (int round = 0; round < 400 && !drained(); ++round)
        EXPECT_EQ(pollOnce(peer, 200), 1);
    EXPECT_TRUE(drained());
    for (int i = 0; i <= PLC_driver.readList.size(); ++i)
        EXPECT_EQ(pollOnce(peer, 200), 1);

    // Only a give-up after the last value was queued may have dropped it.
    for (auto it = lastValue.constBegin(); it != lastValue.constEnd(); ++it)
        EXPECT_TRUE(plc.reg(it.key()) == it.value() || lastGiveUp >= it.value())
            << "write to D" << it.key() << " lost";
    for (int a = 0; a < 32; ++a)
        EXPECT_EQ(PLC_driver.localArea.localD[a], 0x100 + a) << "D" << a;
    // One-off reads: answered once each; given up or missing only after a give-up.
    EXPECT_EQ(callBackRepeats, 0);
    for (int id : onceIds)
        EXPECT_TRUE(callBacks.value(id) == 1 || lastGiveUp >= id) << "one-off read " << id;
    EXPECT_TRUE(errors > 0 || callBacks.size() == onceIds.size()) << callBacks.size();
}

}  // namespace

TEST(FaultInjection, EachFaultAtOneTenAndFiftyPercent)
{
    // A truncated reply is short; a late one is missed, and its stale bytes
    // may then be taken for the next reply of another length. The reply
    // checks look at length and CRC, not at the station byte: a well-formed
    // reply from another station is taken as good.
    const FaultKind runs[] = {{"drop", &Rates::drop, {4}},
                              {"bad CRC", &Rates::badCrc, {1}},
                              {"truncate", &Rates::truncate, {7}},
                              {"delay", &Rates::delay, {4, 7, 1}},
                              {"wrong station", &Rates::wrongStation, {}}};
    for (double rate : {0.01, 0.10, 0.50})
        for (const FaultKind &run : runs)
            runFaultyLine(run, rate);
}
