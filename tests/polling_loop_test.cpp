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
