// The controller stand-in must itself be right before other tests lean on
// it: each fault it injects really happens. (That it answers valid frames
// and applies broadcasts is the cross-check's business.)
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "driver/checksum.h"
#include "support/pty_peer.h"

TEST(ModbusServer, InjectsEachFaultOnRequest)
{
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    ModbusServer &srv = peer.server();
    const QByteArray req = QByteArray::fromHex("0103000000044409");  // station 1, D0..D3
    auto crcOf = [](QByteArray b) {
        return CalCRC(reinterpret_cast<unsigned char *>(b.data()), b.size());
    };

    srv.failNext(ModbusServer::FaultDrop, 1);
    EXPECT_TRUE(peer.transact(req, 13, 200).isEmpty());

    srv.failNext(ModbusServer::FaultBadCrc, 1);
    QByteArray r = peer.transact(req, 13);
    EXPECT_TRUE(r.size() == 13 && crcOf(r) != 0) << r.toHex().constData();

    srv.failNext(ModbusServer::FaultTruncate, 1);
    r = peer.transact(req, 13, 300);
    EXPECT_TRUE(r.size() > 0 && r.size() < 13) << r.size();

    srv.failNext(ModbusServer::FaultWrongStation, 1);
    r = peer.transact(req, 13);
    EXPECT_TRUE(r.size() == 13 && crcOf(r) == 0 && r[0] != char(1)) << r.toHex().constData();

    srv.failNext(ModbusServer::FaultDelay, 1, 300);
    EXPECT_TRUE(peer.transact(req, 13, 100).isEmpty());  // too late for us
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    EXPECT_EQ(peer.transact(req, 13).size(), 13);  // late bytes flushed, next is clean

    EXPECT_EQ(srv.counters().faults, 5u);
}
