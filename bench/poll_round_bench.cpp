// One polling round as the communication thread runs it: ComCommunication
// builds the next cyclic read and DataCom checks and stores a good reply.
#include <benchmark/benchmark.h>

#include "bench_common.h"
#include "driver/locks.h"
#include "localarea/store.h"

namespace {

const int kWords = 64;
const int kStation = 1;

// Arms the driver with one cyclic read of `words` registers at D0;
// `multiStation` chooses the shared mirror (0) or the per-station store (1).
QByteArray armPollLoop(int multiStation, int words = kWords)
{
    ComInfo *info = resetDriver();
    info->multiStation = multiStation;
    info->retryLimit = 3;
    info->blockUnits = words;
    RW_VAR v = bench::blockRead(14, 0, words, kStation);
    AddListReadVar(&v);
    return bench::registerReply(kStation, words, 0x1200);
}

void runRounds(benchmark::State &state, int multiStation, int words = kWords)
{
    QByteArray reply = armPollLoop(multiStation, words);
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
    state.SetItemsProcessed(state.iterations() * words);
}

void BM_PollRound_SharedMirror(benchmark::State &state)
{
    runRounds(state, 0);
}
void BM_PollRound_PerStationStore(benchmark::State &state)
{
    runRounds(state, 1);
}

// The round against the block's size, from one register to the most one
// read frame carries.
void BM_PollRound_Registers(benchmark::State &state)
{
    runRounds(state, 0, int(state.range(0)));
}

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
BENCHMARK(BM_PollRound_Registers)->Arg(1)->Arg(16)->Arg(32)->Arg(64)->Arg(125);

BENCHMARK_MAIN();
