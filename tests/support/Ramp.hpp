#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
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

/// Whole samples of bytes.
inline std::vector<std::int16_t> samplesOf(std::span<const std::byte> bytes) {
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    if (!samples.empty()) {
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
    }
    return samples;
}

inline std::vector<std::int16_t> withoutSilence(std::vector<std::int16_t> samples) {
    std::erase(samples, 0);
    return samples;
}

/// How samples differ from the ramp's first ones: empty when they are these, or where the ramp has
/// holes.
inline std::string differenceFromRamp(const std::vector<std::int16_t>& samples, std::size_t count) {
    const std::vector<std::int16_t> ramp = rampSamples(count);
    if (samples == ramp) {
        return "";
    }
    std::string difference =
        std::to_string(samples.size()) + " samples of " + std::to_string(count) + ", missing";
    auto wanted = ramp.begin();
    for (const std::int16_t sample : samples) {
        const auto found = std::find(wanted, ramp.end(), sample);
        if (found == ramp.end()) {
            return difference + "; one that is not the ramp's, or comes again";
        }
        if (found != wanted) {
            difference += " " + std::to_string(wanted - ramp.begin()) + " to " +
                          std::to_string(found - ramp.begin());
        }
        wanted = found + 1;
    }
    return difference + " " + std::to_string(wanted - ramp.begin()) + " to the end";
}

}  // namespace zav::test
