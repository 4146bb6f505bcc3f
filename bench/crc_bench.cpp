// CRC-16 of request and reply frames. It is computed bit by bit; these
// figures show how far below the wire time of the same bytes it stays.
#include <benchmark/benchmark.h>

#include <vector>

#include "driver/checksum.h"

namespace {

void BM_CalCRC(benchmark::State &state)
{
    const int length = int(state.range(0));
    std::vector<unsigned char> frame(length);
    for (int i = 0; i < length; ++i)
        frame[i] = static_cast<unsigned char>(i * 37 + 11);
    for (auto _ : state) {
        int crc = CalCRC(frame.data(), static_cast<unsigned short>(length));
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(state.iterations() * length);
}

}  // namespace

// 8 is a request, 133 a 64-register reply, 256 the largest RTU frame.
BENCHMARK(BM_CalCRC)->Arg(8)->Arg(64)->Arg(133)->Arg(256);

BENCHMARK_MAIN();
