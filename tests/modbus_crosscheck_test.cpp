// Our frames judged by someone else: libmodbus, as the controller, must
// accept each one with its own length and CRC checks, answer with exactly
// the reply length we wait for, and read or write the elements we meant.
#include <gtest/gtest.h>

#include "driver/checksum.h"
#include "driver/driver_object.h"
#include "frames/address_map.h"
#include "driver/frame_builders.h"
#include "support/driver_reset.h"
#include "support/frame_request.h"
#include "support/pty_peer.h"

namespace {

enum { X = 0, Y = 1, M = 2, D = 14, TD = 15, FS = 25 };

class Crosscheck : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetDriver();
        ASSERT_TRUE(peer.ok());
        srv.setStations({1, 2});
    }

    // Builds the frame, sends it and checks libmodbus took it and answered
    // with a valid reply of the announced length. Returns the reply.
    QByteArray exchange(void (*builder)(RW_VAR *), RW_VAR v)
    {
        PLC_driver.sendQueue.clear();
        builder(&v);
        EXPECT_EQ(PLC_driver.sendQueue.size(), 1);
        if (PLC_driver.sendQueue.isEmpty())
            return QByteArray();
        const Protocol p = PLC_driver.sendQueue.takeFirst();
        const uint64_t accepted = srv.counters().accepted;
        QByteArray reply = peer.transact(p.frame.left(p.sendLength), p.replyLength, 2000);
        srv.waitForRequests(++sent, 2000);
        EXPECT_EQ(srv.counters().accepted, accepted + 1) << p.frame.toHex().constData();
        EXPECT_EQ(reply.size(), p.replyLength) << p.frame.toHex().constData();
        if (!reply.isEmpty()) {
            EXPECT_EQ(CalCRC(reinterpret_cast<unsigned char *>(reply.data()), reply.size()), 0);
            EXPECT_EQ(reply.at(1), p.frame.at(1));  // no exception reply
        }
        return reply;
    }

    PtyPeer peer;
    ModbusServer &srv = peer.server();
    uint64_t sent = 0;
};

}  // namespace

TEST_F(Crosscheck, ReadsReturnWhatTheControllerHolds)
{
    // The most registers Modbus lets one read carry, at the top of the space.
    srv.setRegister(0xF4C0 + 124, 0x0124);
    QByteArray r = exchange(ReadRegister, request(FS, 0, 125));
    ASSERT_EQ(r.size(), 255);
    EXPECT_EQ(r.mid(3 + 248, 2).toHex(), "0124");

    const int x = 4160;  // X10100, first element of segment 3
    srv.setCoil(BitElementToCoil(X, x + 3), true);
    srv.setCoil(BitElementToCoil(X, x + 9), true);
    r = exchange(ReadRegister, request(X, x, 2));
    ASSERT_EQ(r.size(), 7);
    EXPECT_EQ(r.mid(3, 2).toHex(), "0802");

    // 250 bytes = 2000 coils, the most one read may ask for.
    srv.setCoil(1999, true);
    r = exchange(ReadRegister, request(M, 0, 250));
    ASSERT_EQ(r.size(), 255);
    EXPECT_EQ(r.mid(3 + 249, 1).toHex(), "80");
}

TEST_F(Crosscheck, WritesLandWhereTheFrameMeantAndBroadcastsDrawNoReply)
{
    QByteArray many;  // the most registers one Modbus write may carry
    for (int i = 0; i < 123; ++i)
        many.append(char(i)).append(char(0xA0));
    exchange(WriteRegister, request(Y, 0, 1, 1, QByteArray(1, '\1')));
    exchange(WriteRegister, request(D, 100, 4, 2, QByteArray::fromHex("0100020003000400")));
    exchange(WriteRegister, request(TD, 0, 123, 1, many));
    const QByteArray d7 = QByteArray::fromHex("CDAB3412");
    EXPECT_TRUE(exchange(WriteRegister, request(D, 7, 2, 0, d7)).isEmpty());
    EXPECT_TRUE(exchange(WriteRegister, request(M, 9, 1, 0, QByteArray(1, '\1'))).isEmpty());

    EXPECT_TRUE(srv.coil(0x6000));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(srv.reg(100 + i), i + 1);
    EXPECT_EQ(srv.reg(0x8000), 0xA000);
    EXPECT_EQ(srv.reg(0x8000 + 122), 0xA07A);
    EXPECT_EQ(srv.reg(7), 0xABCD);
    EXPECT_EQ(srv.reg(8), 0x1234);
    EXPECT_TRUE(srv.coil(9));
    EXPECT_EQ(srv.counters().replies, 3u);  // the station writes only
}
