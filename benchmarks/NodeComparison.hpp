#pragma once

#include <alloca.h>
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Measuring.hpp"

/// Compares the time of a node with that of a plain loop that does the same work.
///
/// The plain loop and the node take turns in short slices of the same work. Each side is first in
/// every second turn. The addresses of the states and of the stack make a side faster or slower by
/// up to one percent. The comparison evens this out with many pairs of plain loop and node, and
/// with another stack position for each turn. Both sides of a pair have processed the same audio
/// before each slice, so codecs that adapt to their audio are in the same state. Counters, from the
/// medians over all slices:
///
///   plain_ns_per_UNIT  processor time of the plain loop for one unit of work
///   node_ns_per_UNIT   the same for the node, including the source that pushes the chunk to it
///   overhead_percent   how much longer a slice of the node takes than the plain one beside it
///
/// The benchmark's own time is the time of one slice of the node.
namespace zav::benchmarks {

/// The work of one turn. The counters are times for one unit.
struct Slice {
    std::size_t chunkCount;
    std::size_t unitsPerChunk;
    std::string unit;
};

/// Ends the process unless `isGood`. The plain loops check what the nodes check.
inline void require(bool isGood) {
    if (!isGood) {
        std::abort();
    }
}

/// Compares two sides of different types. Both sides are made from the same arguments. A side has
/// `runChunk(index)`, which is called for each chunk of a slice. A side may also have
/// `prepareSlice()`, which is called before each slice and is not measured.
template <class Plain, class Node, class... Arguments>
void compareWithPlain(benchmark::State& state, const Slice& slice, const Arguments&... arguments) {
    constexpr std::size_t kPairs = 32;
    std::vector<std::pair<std::unique_ptr<Plain>, std::unique_ptr<Node>>> pairs;
    for (std::size_t i = 0; i < kPairs; ++i) {
        pairs.emplace_back(std::make_unique<Plain>(arguments...),
                           std::make_unique<Node>(arguments...));
    }

    std::size_t turn = 0;
    const auto nanosecondsOfSlice = [&](auto& side) {
        if constexpr (requires { side.prepareSlice(); }) {
            side.prepareSlice();
        }
        // Uses all positions in a memory page in turn. The stack is aligned to 16 bytes.
        constexpr std::size_t kPageSize = 4096;
        constexpr std::size_t kStep = 17 * 16;
        void* const shift = ::alloca(16 + turn * kStep % kPageSize);
        benchmark::DoNotOptimize(shift);
        return nanosecondsOf([&] {
            for (std::size_t i = 0; i < slice.chunkCount; ++i) {
                side.runChunk(i);
            }
        });
    };

    std::vector<double> plainTimes;
    std::vector<double> nodeTimes;
    std::vector<double> ratios;
    for (auto _ : state) {
        auto& [plain, node] = pairs[turn / 2 % kPairs];
        const bool isPlainFirst = turn % 2 == 0;
        double plainTime = isPlainFirst ? nanosecondsOfSlice(*plain) : 0;
        const double nodeTime = nanosecondsOfSlice(*node);
        if (!isPlainFirst) {
            plainTime = nanosecondsOfSlice(*plain);
        }
        ++turn;
        plainTimes.push_back(plainTime);
        nodeTimes.push_back(nodeTime);
        ratios.push_back(nodeTime / plainTime);
        state.SetIterationTime(nodeTime * 1e-9);
    }

    const auto unitCount = static_cast<double>(slice.chunkCount * slice.unitsPerChunk);
    state.counters["plain_ns_per_" + slice.unit] = median(plainTimes) / unitCount;
    state.counters["node_ns_per_" + slice.unit] = median(nodeTimes) / unitCount;
    state.counters["overhead_percent"] = 100 * (median(ratios) - 1);
}

}  // namespace zav::benchmarks
