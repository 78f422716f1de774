#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace zav::test {

using Bytes = std::vector<std::byte>;

/// 16-bit little-endian samples of two tones with a little noise, the same at every call.
inline Bytes testPcm(std::size_t sampleCount) {
    Bytes bytes;
    std::uint32_t noise = 1;
    for (std::size_t i = 0; i < sampleCount; ++i) {
        noise = noise * 1664525U + 1013904223U;
        const auto t = static_cast<double>(i);
        const double value = 9000 * std::sin(t * 0.11) + 4000 * std::sin(t * 0.731) +
                             static_cast<double>(noise >> 22U);
        const auto sample = static_cast<std::uint16_t>(static_cast<std::int16_t>(value));
        bytes.push_back(static_cast<std::byte>(sample));
        bytes.push_back(static_cast<std::byte>(sample >> 8U));
    }
    return bytes;
}

/// Pseudo-random bytes, the same for the same seed.
inline Bytes testBytes(std::size_t count, std::uint32_t seed = 1) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) {
        seed = seed * 1664525U + 1013904223U;
        bytes.push_back(static_cast<std::byte>(seed >> 24U));
    }
    return bytes;
}

inline Bytes bytesFrom(std::initializer_list<unsigned> values) {
    Bytes bytes;
    for (const unsigned value : values) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

inline Bytes joined(std::initializer_list<std::span<const std::byte>> pieces) {
    Bytes bytes;
    for (const auto piece : pieces) {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
    }
    return bytes;
}

}  // namespace zav::test
