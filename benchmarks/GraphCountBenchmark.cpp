// The cost of many graphs side by side: 1, 100 and 1000 graphs PeripheralSource -> SBCEncoder ->
// SBCDecoder -> PeripheralSink of 16 kHz mono. In each round one chunk of about half a second (62
// SBC frames) goes through each graph. Counters:
//
//   ns_per_chunk     processor time of one chunk through one graph, from the median round
//   bytes_per_graph  bytes that one graph has allocated after audio has gone through it, with both
//                    codec states
//
// The benchmark's own time is the time of one round.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Measuring.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::benchmarks {
namespace {

std::size_t bytesAllocated() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::shared_ptr<PeripheralSource> makeGraph() {
    auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(linearPcm(16000, 1));
    const auto encoder =
        makeNode<SBCEncoder>(source, std::make_shared<SBCCoding::SBCConfiguration>());
    const auto decoder = makeNode<SBCDecoder>(encoder);
    makeNode<PeripheralSink>(decoder);
    return source;
}

void GraphCount(benchmark::State& state) {
    constexpr std::size_t kFramesPerChunk = 62 * 128;
    const std::vector<std::byte> chunk = test::testPcm(kFramesPerChunk);
    const auto graphCount = static_cast<std::size_t>(state.range(0));

    // Count while the graphs exist. The destruction of the graphs frees fewer bytes, because an SBC
    // configuration leaves libsbc's private state allocated on purpose.
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(state.max_iterations));
    std::vector<std::shared_ptr<PeripheralSource>> sources;
    sources.reserve(graphCount);
    const std::size_t bytesBefore = bytesAllocated();
    for (std::size_t i = 0; i < graphCount; ++i) {
        sources.push_back(makeGraph());
    }

    for (auto _ : state) {
        times.push_back(nanosecondsOf([&] {
            for (const auto& source : sources) {
                source->downstreams().receiveAudio(chunk.data(), chunk.size(), kFramesPerChunk,
                                                   nullptr);
            }
        }));
        state.SetIterationTime(times.back() * 1e-9);
    }
    const std::size_t bytesAfter = bytesAllocated();
    const auto count = static_cast<double>(graphCount);
    state.counters["ns_per_chunk"] = median(times) / count;
    state.counters["bytes_per_graph"] = static_cast<double>(bytesAfter - bytesBefore) / count;
}

// The number of rounds is fixed. To choose a number, Google Benchmark would make all graphs several
// times, and each graph leaves its codec states allocated.
BENCHMARK(GraphCount)->ArgName("graphs")->Arg(1)->Iterations(10000)->UseManualTime();
BENCHMARK(GraphCount)->ArgName("graphs")->Arg(100)->Iterations(100)->UseManualTime();
BENCHMARK(GraphCount)->ArgName("graphs")->Arg(1000)->Iterations(15)->UseManualTime();

}  // namespace
}  // namespace zav::benchmarks
