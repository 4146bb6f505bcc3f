// The controller stand-in must itself be right before other tests lean on
// it: which stations it answers, what it stores, and each fault it injects.
#include <chrono>
#include <thread>

#include <QList>
#include <gtest/gtest.h>

#include "driver/checksum.h"
#include "support/pty_peer.h"

namespace {

// Request bytes plus CRC, low byte first, as on the line.
QByteArray withCrc(QByteArray body)
{
    const int crc = CalCRC(reinterpret_cast<unsigned char *>(body.data()), body.size());
    body.append(char(crc & 0xFF));
    body.append(char(crc >> 8));
    return body;
}

bool crcOk(const QByteArray &reply)
{
    if (reply.size() < 3)
        return false;
    QByteArray body = reply.left(reply.size() - 2);
    return withCrc(body) == reply;
}

QByteArray readRegs(int station, int address, int count)
{
    const char b[] = {char(station), 0x03, char(address >> 8), char(address), char(count >> 8),
                      char(count)};
    return withCrc(QByteArray(b, 6));
}

}  // namespace

TEST(ModbusServer, AnswersItsStationsOnlyAndAppliesBroadcasts)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ModbusServer &srv = peer.server();
    srv.setStations({1, 7});
    srv.setRegister(100, 0x1234);
    srv.setRegister(101, 0xABCD);

    QByteArray r = peer.transact(readRegs(7, 100, 2), 9);
    ASSERT_EQ(r.size(), 9);
    EXPECT_TRUE(crcOk(r));
    EXPECT_EQ(r.mid(0, 7), QByteArray::fromHex("0703041234ABCD"));

    // Another station and a corrupt frame both get silence.
    EXPECT_TRUE(peer.transact(readRegs(2, 100, 2), 9, 150).isEmpty());
    QByteArray bad = readRegs(1, 100, 2);
    bad[7] = char(bad[7] ^ 1);
    EXPECT_TRUE(peer.transact(bad, 9, 150).isEmpty());

    // Broadcast write of one register: applied, never answered.
    EXPECT_TRUE(peer.transact(withCrc(QByteArray::fromHex("00060005BEEF")), 0).isEmpty());
    ASSERT_TRUE(srv.waitForRequests(4, 1000));
    EXPECT_EQ(srv.reg(5), 0xBEEF);

    // Coils across the whole space, 0xFFFF included.
    r = peer.transact(withCrc(QByteArray::fromHex("0105FFFFFF00")), 8);
    EXPECT_EQ(r.size(), 8);
    EXPECT_TRUE(srv.coil(0xFFFF));

    const ModbusServer::Counters c = srv.counters();
    EXPECT_EQ(c.requests, 5u);
    EXPECT_EQ(c.accepted, 3u);  // station 2 and the corrupt frame are not
    EXPECT_EQ(c.replies, 2u);
    EXPECT_EQ(c.faults, 0u);
}

TEST(ModbusServer, InjectsEachFaultOnRequest)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ModbusServer &srv = peer.server();
    const QByteArray req = readRegs(1, 0, 4);

    srv.failNext(ModbusServer::FaultDrop, 1);
    EXPECT_TRUE(peer.transact(req, 13, 200).isEmpty());

    srv.failNext(ModbusServer::FaultBadCrc, 1);
    QByteArray r = peer.transact(req, 13);
    EXPECT_EQ(r.size(), 13);
    EXPECT_FALSE(crcOk(r));

    srv.failNext(ModbusServer::FaultTruncate, 1);
    r = peer.transact(req, 13, 300);
    EXPECT_GT(r.size(), 0);
    EXPECT_LT(r.size(), 13);

    srv.failNext(ModbusServer::FaultWrongStation, 1);
    r = peer.transact(req, 13);
    ASSERT_EQ(r.size(), 13);
    EXPECT_TRUE(crcOk(r));
    EXPECT_NE(r[0], char(1));

    srv.failNext(ModbusServer::FaultDelay, 1, 300);
    EXPECT_TRUE(peer.transact(req, 13, 100).isEmpty());  // too late for us
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    EXPECT_EQ(peer.transact(req, 13).size(), 13);  // late bytes flushed, next is clean

    EXPECT_EQ(srv.counters().faults, 5u);
}

TEST(ModbusServer, RandomFaultsAreRepeatableBySeed)
{
    QList<int> runs[2];
    for (int run = 0; run < 2; ++run) {
        PtyPeer peer;
        ASSERT_TRUE(peer.ok());
        ModbusServer::FaultRates rates;
        rates.drop = 0.5;
        rates.seed = 42;
        peer.server().setFaults(rates);
        for (int i = 0; i < 12; ++i)
            runs[run].append(peer.transact(readRegs(1, 0, 1), 7, 80).size());
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_TRUE(runs[0].contains(0));
    EXPECT_TRUE(runs[0].contains(7));
}
