#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zav {

/// The integer that these bytes are, the highest one first.
inline std::uint64_t bigEndianAt(std::span<const std::byte> bytes) {
    std::uint64_t value = 0;
    for (const std::byte byte : bytes) {
        value = value << 8U | std::to_integer<std::uint64_t>(byte);
    }
    return value;
}

/// Writes the integer over all of these bytes, the highest one first.
inline void putBigEndian(std::span<std::byte> bytes, std::uint64_t value) {
    for (std::size_t i = bytes.size(); i-- > 0; value >>= 8U) {
        bytes[i] = static_cast<std::byte>(value);
    }
}

}  // namespace zav
