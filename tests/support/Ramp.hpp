#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zav::test {

/// Sample i of the tests' audio: never silence, and no two near each other are the same.
inline std::int16_t rampSample(std::uint64_t index) {
    return static_cast<std::int16_t>(1 + index % 30000);
}

inline std::vector<std::int16_t> rampSamples(std::size_t count, std::size_t first = 0) {
    std::vector<std::int16_t> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = rampSample(first + i);
    }
    return samples;
}

}  // namespace zav::test
