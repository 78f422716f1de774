#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace zav::test {

/// The ramp repeats after this many samples.
inline constexpr std::size_t kRampLength = 30000;

/// `count` samples of the ramp, from its sample `first` on. None is 0, which is silence, and no two
/// within `kRampLength` are the same.
inline std::vector<std::int16_t> rampSamples(std::size_t count, std::size_t first = 0) {
    std::vector<std::int16_t> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<std::int16_t>(1 + (first + i) % kRampLength);
    }
    return samples;
}

/// The byte at a position of a stream that a test compares byte by byte.
inline std::byte rampByte(std::size_t position) {
    return static_cast<std::byte>(position % 251);
}

/// 16-bit samples from their bytes. Half a sample at the end is left out.
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

}  // namespace zav::test
