// Measures the cost of a target: a PeripheralSource pushes a chunk of 16000 bytes to 1, 8 and 64
// targets that do nothing. Counter, from the median of batches of walks:
//
//   ns_per_target_call  processor time of one walk over the targets, divided by their number
//
// The benchmark's own time is the time of one batch.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Measuring.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"

namespace zav::benchmarks {
namespace {

void FanOut(benchmark::State& state) {
    constexpr std::int64_t kCallsPerBatch = 64000;
    const std::vector<std::byte> chunk(16000);
    const auto source = makeNode<PeripheralSource>();
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        makeNode<PeripheralSink>(source);
    }

    const std::int64_t walksPerBatch = kCallsPerBatch / state.range(0);
    std::vector<double> times;
    for (auto _ : state) {
        times.push_back(nanosecondsOf([&] {
            for (std::int64_t i = 0; i < walksPerBatch; ++i) {
                source->downstreams().receiveAudio(chunk.data(), chunk.size(), chunk.size() / 2,
                                                   nullptr);
            }
        }));
        state.SetIterationTime(times.back() * 1e-9);
    }
    state.counters["ns_per_target_call"] = median(times) / double{kCallsPerBatch};
}

BENCHMARK(FanOut)->ArgName("targets")->Arg(1)->Arg(8)->Arg(64)->UseManualTime();

}  // namespace
}  // namespace zav::benchmarks
