// Heap the driver holds for a large polled set and a large per-station
// store, measured as the change of the allocator's bytes in use. The time
// columns of this program mean nothing; its counters are the figures.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include "bench_common.h"
#include "driver/locks.h"
#include "localarea/store.h"

namespace {

long heapInUse()
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
    // Large blocks (a grown index or list array) may be mapped apart from
    // the heap proper; they count all the same.
    const struct mallinfo2 m = mallinfo2();
    return long(m.uordblks + m.hblkhd);
#else
    return -1;
#endif
}

// 20,000 polled variables spread evenly with gaps over two word areas and
// two bit areas (Y written in octal, as the runtime hands it over).
QList<VarInfo> polledSet(int variables)
{
    struct Area {
        int type;
        const char *name;
        int capacity;
        int base;
    };
    const Area areas[4] = {
        {14, "D", 8000, 10}, {17, "FD", 6144, 10}, {2, "M", 8000, 10}, {1, "Y", 8384, 8}};
    QList<VarInfo> vars;
    const int perArea = variables / 4;
    for (int a = 0; a < 4; ++a) {
        for (int i = 0; i < perArea; ++i) {
            VarInfo v;
            v.areaType = static_cast<unsigned char>(areas[a].type);
            v.station = 1;
            v.areaName = QString(areas[a].name);
            const long address = long(i) * areas[a].capacity / perArea;
            v.addressText = QString::number(address, areas[a].base);
            v.count = 1;
            vars.append(v);
        }
    }
    return vars;
}

void BM_Heap_PolledVariables(benchmark::State &state)
{
    const int variables = int(state.range(0));
    long listBytes = 0;
    long driverBytes = 0;
    int entries = 0;
    for (auto _ : state) {
        resetDriver();
        const long before = heapInUse();
        QList<VarInfo> vars = polledSet(variables);
        const long withList = heapInUse();
        ReCreatReadVarList(&vars);
        driverBytes = heapInUse() - withList;
        listBytes = withList - before;
        entries = PLC_driver.readList.size();
    }
    state.counters["driver_heap_bytes"] = double(driverBytes);
    state.counters["runtime_list_bytes"] = double(listBytes);
    state.counters["read_requests"] = entries;
    state.counters["variables"] = variables;
}

// 50,000 keys as lookups create them (sharing one block of zero bytes), or
// each then given its own word as a reply or write does.
void heapPerStationKeys(benchmark::State &state, bool filled)
{
    const int keys = int(state.range(0));
    long bytes = 0;
    for (auto _ : state) {
        ComInfo *info = resetDriver();
        info->multiStation = 1;
        PLC_driver.extendList = QList<EXTENDVAR>();
        PLC_driver.extendIndex.clear();
        const long before = heapInUse();
        {
            MutexHold hold(PLC_driver.areaMutex);
            for (int k = 0; k < keys; ++k) {
                const char word[2] = {char(k), char(k >> 8)};
                if (filled)
                    setExtendData(1 + k % 16, 14 + (k / 16) % 4, k / 64, word, 2);
                else
                    ExtendFindSameVar(1 + k % 16, 14 + (k / 16) % 4, k / 64);
            }
        }
        bytes = heapInUse() - before;
    }
    state.counters["store_heap_bytes"] = double(bytes);
    state.counters["bytes_per_key"] = keys > 0 ? double(bytes) / keys : 0.0;
    state.counters["keys"] = keys;
}

void BM_Heap_PerStationKeys(benchmark::State &state)
{
    heapPerStationKeys(state, false);
}
void BM_Heap_PerStationKeysFilled(benchmark::State &state)
{
    heapPerStationKeys(state, true);
}

}  // namespace

BENCHMARK(BM_Heap_PolledVariables)->Arg(20000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heap_PerStationKeys)->Arg(50000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heap_PerStationKeysFilled)->Arg(50000)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
