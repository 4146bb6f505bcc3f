// The runtime's direct access to values: GetRegisterData from the shared
// mirror and from the per-station store at growing sizes, and
// SetRegisterData queueing a write while many writes are pending.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "bench_common.h"
#include "driver/locks.h"
#include "localarea/store.h"

namespace {

const QString kUnused("D");

void BM_GetRegisterData_SharedMirror(benchmark::State &state)
{
    resetDriver();
    PLC_driver.localArea.localD[100] = 0x1234;
    const QString text = bench::wordText(100);
    QByteArray out;
    for (auto _ : state) {
        GetRegisterData(kUnused, 14, text, 1, &out, 1);
        benchmark::DoNotOptimize(out.constData());
    }
    if (out.size() < 2 || out.at(0) != 0x34)
        state.SkipWithError("mirror value not read back");
}

// Fills the per-station store with `keys` entries spread over several
// stations and word areas, as a panel polling many controllers would.
void fillStore(int keys)
{
    MutexHold hold(PLC_driver.areaMutex);
    for (int k = 0; k < keys; ++k)
        ExtendFindSameVar(1 + k % 16, 14 + (k / 16) % 4, k / 64);
}

// One word from the per-station store; the key read is the last one
// created, which a walk from the front of the store would reach last.
void BM_GetRegisterData_PerStationStore(benchmark::State &state)
{
    ComInfo *info = resetDriver();
    info->multiStation = 1;
    const int keys = int(state.range(0));
    fillStore(keys);
    const int last = keys - 1;
    const int station = 1 + last % 16;
    const int areaType = 14 + (last / 16) % 4;
    const QString text = bench::wordText(last / 64);
    {
        MutexHold hold(PLC_driver.areaMutex);
        setExtendData(station, areaType, last / 64, "\x78\x56", 2);
    }
    QByteArray out;
    for (auto _ : state) {
        GetRegisterData(kUnused, areaType, text, station, &out, 1);
        benchmark::DoNotOptimize(out.constData());
    }
    if (out.size() < 2 || out.at(0) != 0x78 || out.at(1) != 0x56)
        state.SkipWithError("stored value not read back");
    state.counters["keys"] = double(PLC_driver.extendList.size());
}

// One word from a per-station store of `keys` keys drawn at random from 8
// stations and 7,000 D registers, each holding its own value; the reads ask
// for stored keys in random order, as a screen of scattered variables does,
// so a large store is not read from the cache.
void BM_GetRegisterData_RandomKeys(benchmark::State &state)
{
    const int stations = 8, addresses = 7000;
    ComInfo *info = resetDriver();
    info->multiStation = 1;
    std::mt19937 random(1234);
    std::vector<int> all(stations * addresses);
    for (int i = 0; i < int(all.size()); ++i)
        all[i] = i;
    std::shuffle(all.begin(), all.end(), random);
    all.resize(std::min<size_t>(all.size(), size_t(state.range(0))));
    // Entries made as replies leave them (own data bytes), appended directly
    // so that filling does not time the lookup under test.
    for (int key : all) {
        EXTENDVAR e;
        e.station = 1 + key / addresses;
        e.areaType = 14;
        e.address = key % addresses;
        e.data = QByteArray(2, char(key));
        PLC_driver.extendList.append(e);
    }
    {
        // The first lookup takes the appended entries into the index.
        MutexHold hold(PLC_driver.areaMutex);
        ExtendFindSameVar(1 + all[0] / addresses, 14, all[0] % addresses);
    }
    std::vector<QString> texts;
    for (int a = 0; a < addresses; ++a)
        texts.push_back(bench::wordText(a));
    std::vector<int> order(1 << 16);
    for (int &k : order)
        k = all[random() % all.size()];
    QByteArray out;
    size_t next = 0;
    long wrong = 0;
    for (auto _ : state) {
        const int key = order[next++ & (order.size() - 1)];
        GetRegisterData(kUnused, 14, texts[key % addresses], 1 + key / addresses, &out, 1);
        wrong += out.at(0) != char(key);
    }
    if (wrong != 0 || PLC_driver.extendList.size() != int(all.size()))
        state.SkipWithError("stored values not read back");
    state.counters["keys"] = double(PLC_driver.extendList.size());
}

// Queue mode with 1000 writes pending: the new value replaces the newest
// pending write for the same register, the longest search of the queue.
void BM_SetRegisterData_Queue1000(benchmark::State &state)
{
    resetDriver();
    const int pending = int(state.range(0));
    QByteArray value;
    value.append(char(0x34));
    value.append(char(0x12));
    const QString name("D");
    for (int i = 0; i < pending; ++i)
        SetRegisterData(name, 14, bench::wordText(i), 1, &value, 1, 0, i);
    const QString text = bench::wordText(pending - 1);
    int queued = 0;
    for (auto _ : state) {
        value[0] = char(queued);
        queued = SetRegisterData(name, 14, text, 1, &value, 1, 0, 7);
    }
    if (queued != pending || PLC_driver.writeList.size() != pending)
        state.SkipWithError("write queue did not keep its length");
    state.counters["pending"] = double(PLC_driver.writeList.size());
}

}  // namespace

BENCHMARK(BM_GetRegisterData_SharedMirror);
BENCHMARK(BM_GetRegisterData_PerStationStore)->Arg(1000)->Arg(5000)->Arg(20000)->Arg(50000);
BENCHMARK(BM_GetRegisterData_RandomKeys)->Arg(1000)->Arg(5000)->Arg(20000)->Arg(50000);
BENCHMARK(BM_SetRegisterData_Queue1000)->Arg(1000);

BENCHMARK_MAIN();
