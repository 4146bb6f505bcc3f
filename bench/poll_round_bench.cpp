// One polling round as the communication thread runs it: ComCommunication
// builds the next cyclic read and DataCom checks and stores a good reply.
#include <benchmark/benchmark.h>

#include "bench_common.h"
#include "driver/locks.h"
#include "localarea/store.h"

namespace {

const int kWords = 64;
const int kStation = 1;

// Arms the driver with one 64-register cyclic read of D0; `multiStation`
// chooses the shared mirror (0) or the per-station store (1).
QByteArray armPollLoop(int multiStation)
{
    ComInfo *info = resetDriver();
    info->multiStation = multiStation;
    info->retryLimit = 3;
    RW_VAR v = bench::blockRead(14, 0, kWords, kStation);
    AddListReadVar(&v);
    return bench::registerReply(kStation, kWords, 0x1200);
}

void runRounds(benchmark::State &state, int multiStation)
{
    QByteArray reply = armPollLoop(multiStation);
    const int length = reply.size();
    long bad = 0;
    for (auto _ : state) {
        Protocol *p = ComCommunication();
        benchmark::DoNotOptimize(p);
        RW_VAR *r = DataCom(&reply, length);
        if (r->result != 1)
            ++bad;
    }
    // A round that did not end in success measured the wrong path.
    if (bad != 0)
        state.SkipWithError("reply was not accepted");
    state.counters["reply_bytes"] = length;
    state.SetItemsProcessed(state.iterations() * kWords);
}

void BM_PollRound_SharedMirror(benchmark::State &state) { runRounds(state, 0); }
void BM_PollRound_PerStationStore(benchmark::State &state) { runRounds(state, 1); }

// The per-station store's round with many other stations' keys already
// stored: the cost must not grow with the store.
void BM_PollRound_PerStationStoreFilled(benchmark::State &state)
{
    QByteArray reply = armPollLoop(1);
    {
        MutexHold hold(PLC_driver.areaMutex);
        const int keys = int(state.range(0));
        for (int k = 0; k < keys; ++k)
            ExtendFindSameVar(2 + k / 8000, 14, k % 8000);
    }
    const int length = reply.size();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ComCommunication());
        benchmark::DoNotOptimize(DataCom(&reply, length));
    }
    state.counters["keys"] = double(state.range(0));
}

}  // namespace

BENCHMARK(BM_PollRound_SharedMirror);
BENCHMARK(BM_PollRound_PerStationStore);
BENCHMARK(BM_PollRound_PerStationStoreFilled)->Arg(1000)->Arg(50000);

BENCHMARK_MAIN();
