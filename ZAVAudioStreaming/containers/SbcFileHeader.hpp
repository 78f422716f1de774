#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "ZAVAudioStreaming/containers/ContainerFileHeader.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// The first 64 bytes of an SBC container file. docs/sbc-container.md describes the whole format.
/// The channel mode is not stored. A reader takes one channel as mono and any other number as
/// stereo.
struct ZAV_EXPORT SbcFileHeader : ContainerFileHeader {
    static constexpr std::size_t kByteCount = 64;
    /// Zero bytes follow it up to `kMagicByteCount`.
    static constexpr std::string_view kMagicText = "ZAV.Sbc";

    std::uint8_t subbands = 0;    ///< 0: 4 subbands, 1: 8 subbands
    std::uint8_t blocks = 0;      ///< code 0 to 3 for 4, 8, 12, 16 blocks
    std::uint8_t endianness = 0;  ///< byte order of the PCM side, 0: little, 1: big
    std::uint8_t allocation = 0;  ///< 0: loudness, 1: SNR
    std::uint8_t bitpool = 0;

    std::array<std::byte, kByteCount> toBytes() const;
    /// Reads the fields and checks nothing, not even the magic text.
    static SbcFileHeader fromBytes(std::span<const std::byte, kByteCount> bytes);
};

}  // namespace zav
