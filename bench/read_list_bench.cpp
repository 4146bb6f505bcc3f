// Rebuilding the cyclic read list from a panel's polled variables, single
// station and several stations, from a small screen to a large plant.
#include <benchmark/benchmark.h>

#include <QList>
#include <QString>

#include "driver/driver_object.h"
#include "support/driver_reset.h"

namespace {

// A panel's variable mix: mostly D words of one or two registers, some other
// word areas, and bits of M, X and Y, spread over the areas' addresses.
QList<VarInfo> panelVariables(int n, int stations)
{
    static const char *const names[] = {"X", "Y", "M", "D", "SD", "HD"};
    static const int types[] = {0, 1, 2, 14, 19, 20};
    static const int spans[] = {8384, 8384, 8000, 8000, 4096, 1000};
    static const int weights[] = {1, 1, 2, 10, 1, 1};  // out of 16
    unsigned seed = 12345u;
    QList<VarInfo> vars;
    for (int i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        int pick = int((seed >> 16) % 16), k = 0;
        while (pick >= weights[k])
            pick -= weights[k++];
        seed = seed * 1103515245u + 12345u;
        const int address = int((seed >> 8) % unsigned(spans[k] - 40));
        VarInfo v;
        v.areaType = (unsigned char)types[k];
        v.station = (unsigned char)(1 + (seed >> 4) % unsigned(stations));
        v.areaName = QString::fromLatin1(names[k]);
        v.addressText = QString::number(address, types[k] <= 1 ? 8 : 10);
        v.count = types[k] <= 2 ? 1 + int(seed % 16) : 1 + int(seed % 2);
        vars << v;
    }
    return vars;
}

void BM_RebuildReadList(benchmark::State &state)
{
    const int multi = int(state.range(1));
    ComInfo *info = resetDriver();
    info->multiStation = multi;
    info->blockUnits = 64;
    QList<VarInfo> vars = panelVariables(int(state.range(0)), multi ? 8 : 1);
    int entries = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(entries = ReCreatReadVarList(&vars));
    state.counters["requests"] = PLC_driver.readList.size();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_RebuildReadList)
    ->ArgNames({"vars", "multi"})
    ->ArgsProduct({{1000, 20000, 100000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
