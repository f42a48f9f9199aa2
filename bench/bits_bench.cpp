// Bit access through the simulated host against the plain read of a bit.
#include <benchmark/benchmark.h>

#include <vector>

#include "memory/bits.h"
#include "simhost/simhost.h"

namespace {

struct LoadedHost {
    LoadedHost() {
        simhost::Options options;
        options.logCalls = false;  // measure the plug-in, not the host's call log
        simhost::Reset(options);
        REALPluginMain(&simhost::Resolve);
    }
};

void BM_GetBitQVT(benchmark::State &state) {
    static LoadedHost host;
    REALobject block = simhost::NewBlock(RBInteger{4096});
    uint64_t bit = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(qvt::GetBitQVT(block, bit));
        bit = (bit + 7) % (4096 * 8);
    }
    simhost::Release(block);
}
BENCHMARK(BM_GetBitQVT);

void BM_PlainBitRead(benchmark::State &state) {
    std::vector<uint8_t> bytes(4096);
    uint64_t bit = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize((bytes[bit / 8] >> (7 - bit % 8)) & 1);
        bit = (bit + 7) % (4096 * 8);
    }
}
BENCHMARK(BM_PlainBitRead);

}  // namespace
