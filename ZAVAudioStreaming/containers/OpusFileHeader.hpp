#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/containers/ContainerFileHeader.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// The first 48 bytes of an Opus container file. docs/opus-container.md describes the whole format.
struct ZAV_EXPORT OpusFileHeader : ContainerFileHeader {
    static constexpr std::size_t kByteCount = 48;

    std::array<std::byte, kByteCount> toBytes() const;
    /// Reads the fields and checks nothing, not even the magic text.
    static OpusFileHeader fromBytes(std::span<const std::byte, kByteCount> bytes);

    /// Whether the file begins with "ZAV.Opus" and eight zero bytes.
    static bool hasMagic(std::span<const std::byte, kByteCount> bytes);
};

/// The 8 bytes before each packet: the packet's length, little-endian, and four bytes FF. Readers
/// ignore the bytes FF.
struct ZAV_EXPORT OpusRecordHeader {
    static constexpr std::size_t kByteCount = 8;

    std::uint32_t packetLength = 0;  ///< bytes of the packet, without this header

    std::array<std::byte, kByteCount> toBytes() const;
    static OpusRecordHeader fromBytes(std::span<const std::byte, kByteCount> bytes);
};

}  // namespace zav
