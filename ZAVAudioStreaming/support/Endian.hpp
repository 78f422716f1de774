#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zav::detail {

/// Reads an integer of 1 to 8 bytes, least significant byte first.
inline std::uint64_t littleEndianAt(std::span<const std::byte> bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        value = value << 8U | std::to_integer<std::uint64_t>(bytes[i]);
    }
    return value;
}

/// Fills `bytes` with the integer, least significant byte first.
inline void putLittleEndian(std::span<std::byte> bytes, std::uint64_t value) {
    for (std::byte& byte : bytes) {
        byte = static_cast<std::byte>(value);
        value >>= 8U;
    }
}

/// Reads an integer of 1 to 8 bytes, most significant byte first.
inline std::uint64_t bigEndianAt(std::span<const std::byte> bytes) {
    std::uint64_t value = 0;
    for (const std::byte byte : bytes) {
        value = value << 8U | std::to_integer<std::uint64_t>(byte);
    }
    return value;
}

/// Fills `bytes` with the integer, most significant byte first.
inline void putBigEndian(std::span<std::byte> bytes, std::uint64_t value) {
    for (std::size_t i = bytes.size(); i-- > 0; value >>= 8U) {
        bytes[i] = static_cast<std::byte>(value);
    }
}

}  // namespace zav::detail
