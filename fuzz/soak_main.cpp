// rv_soak: the polling loop for a long time against the simulated
// controller on a pseudo-terminal, with faults on the line, writers and a
// reader on other threads. Memory is sampled after a warm-up and at the
// end; the run fails when the heap grew beyond what the per-station
// store's new keys account for, or when the loop stalled.
//
//   rv_soak [--seconds N] [--rate R]
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "driver/locks.h"
#include "frames/address_map.h"
#include "support/driver_reset.h"
#include "support/pty_peer.h"

namespace {

struct Sample {
    long rssKb;
    long heapBytes;
    int storeKeys;
};

Sample sample()
{
    Sample s;
    long pages = 0, resident = 0;
    FILE *f = std::fopen("/proc/self/statm", "r");
    if (f) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    s.rssKb = resident * (sysconf(_SC_PAGESIZE) / 1024);
    struct mallinfo2 mi = mallinfo2();
    s.heapBytes = long(mi.uordblks + mi.hblkhd);
    MutexHold hold(PLC_driver.areaMutex);
    s.storeKeys = PLC_driver.extendList.size();
    return s;
}

std::atomic<bool> stopping(false);
std::atomic<long> callBacks(0);
void onCallBack(int, int, int, int)
{
    ++callBacks;
}

// Writes to a fixed set of addresses on both stations, so the store's key
// set stops growing once each has been touched.
void writer(unsigned seed, std::atomic<long> *writes)
{
    std::mt19937 rng(seed);
    while (!stopping) {
        QByteArray v;
        v.append(char(rng())).append(char(rng()));
        const int station = 1 + int(rng() % 2);
        if (rng() % 2)
            SetRegisterData("D", 14, QString::number(300 + rng() % 64), station, &v, 1, 1,
                            int(rng() % 100));
        else
            SetRegisterData("M", 2, QString::number(rng() % 128), station, &v, 1, 1, 0);
        RW_VAR once;
        once.areaName = "D";
        once.areaType = 14;
        once.addressText = QString::number(rng() % 200);
        once.count = 1 + int(rng() % 4);
        once.station = station;
        once.ownerType = 2;
        once.ownerId = int(rng() % 50);
        if (rng() % 4 == 0)
            AddListOnceReadVar(&once, 0);
        ++*writes;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void reader()
{
    std::mt19937 rng(99);
    while (!stopping) {
        QByteArray out;
        GetRegisterData(QString(), 14, QString::number(rng() % 200), 1 + int(rng() % 2), &out, 8);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

int main(int argc, char **argv)
{
    int seconds = 600;
    double rate = 0.05;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--seconds"))
            seconds = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--rate"))
            rate = std::atof(argv[i + 1]);
    }
    PtyPeer peer;
    if (!peer.ok()) {
        std::fprintf(stderr, "rv_soak: no pseudo-terminal\n");
        return 2;
    }
    ModbusServer &plc = peer.server();
    plc.setStations(std::vector<int>{1, 2});
    ModbusServer::FaultRates rates;
    rates.drop = rates.badCrc = rates.truncate = rates.wrongStation = rates.delay = rate / 5;
    rates.delayMs = 60;
    rates.seed = 7;
    plc.setFaults(rates);

    ComInfo *info = resetDriver();
    info->multiStation = 1;
    info->blockUnits = 32;
    info->retryLimit = 2;
    RegistCallBackFuncIntf(onCallBack, 0);
    QList<VarInfo> vars;
    for (int station = 1; station <= 2; ++station) {
        VarInfo d;
        d.areaType = 14;
        d.station = (unsigned char)station;
        d.areaName = "D";
        d.addressText = "0";
        d.count = 200;
        VarInfo m = d;
        m.areaType = 2;
        m.areaName = "M";
        m.count = 256;
        vars << d << m;
    }
    ReCreatReadVarList(&vars);

    std::atomic<long> writes(0);
    std::thread w1(writer, 1u, &writes), w2(writer, 2u, &writes), r(reader);
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    const auto warm = start + std::chrono::seconds(seconds / 10 > 5 ? seconds / 10 : 5);
    Sample first = {0, 0, 0};
    bool sampled = false;
    long frames = 0, errors = 0, idle = 0;
    int status = 0;
    while (std::chrono::steady_clock::now() < end) {
        if (!sampled && std::chrono::steady_clock::now() >= warm) {
            first = sample();
            sampled = true;
        }
        const int code = pollOnce(peer, 30);
        if (code == -1) {
            // The cyclic list is never empty: nothing to send is a stall.
            if (++idle > 3) {
                std::fprintf(stderr, "rv_soak: the polling loop stalled\n");
                status = 1;
                break;
            }
            continue;
        }
        idle = 0;
        ++frames;
        if (code != 0 && code != 1)
            ++errors;
    }
    stopping = true;
    w1.join();
    w2.join();
    r.join();
    if (!sampled)
        first = sample();
    const Sample last = sample();
    // Each new store key costs one entry and one index node; allow 256
    // bytes for both, plus 256 KiB for queues that happen to be long now.
    const long allowance = 256L * 1024 + 256L * (last.storeKeys - first.storeKeys);
    const long growth = last.heapBytes - first.heapBytes;
    std::printf("soak: %d s, %ld frames, %ld given up, %ld writes, %ld call-backs\n", seconds,
                frames, errors, long(writes), long(callBacks));
    std::printf("soak: rss %ld kB -> %ld kB, heap %ld -> %ld bytes (growth %ld, allowed %ld), "
                "store keys %d -> %d\n",
                first.rssKb, last.rssKb, first.heapBytes, last.heapBytes, growth, allowance,
                first.storeKeys, last.storeKeys);
    if (growth > allowance) {
        std::fprintf(stderr, "rv_soak: heap grew beyond the store's keys\n");
        status = 1;
    }
    std::printf("soak: %d passed, %d failed\n", status == 0 ? 1 : 0, status == 0 ? 0 : 1);
    return status;
}
