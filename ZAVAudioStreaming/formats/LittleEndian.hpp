#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zav {

/// The integer that these bytes are, the lowest one first.
inline std::uint32_t littleEndianAt(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        value = value << 8U | std::to_integer<std::uint32_t>(bytes[i]);
    }
    return value;
}

/// Writes the integer over all of these bytes, the lowest one first.
inline void putLittleEndian(std::span<std::byte> bytes, std::uint32_t value) {
    for (std::byte& byte : bytes) {
        byte = static_cast<std::byte>(value);
        value >>= 8U;
    }
}

}  // namespace zav
