#pragma once

#include <bit>
#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav {

/// The fields of an SBC stream's `mFormatFlags`.
struct SbcFormatFlags {
    bool isBigEndian = false;  ///< byte order of the PCM side
    std::uint8_t blocks = 0;   ///< code 0 to 3 for 4, 8, 12, 16 blocks
    bool isSnr = false;        ///< true: allocation by SNR, false: by loudness
    bool is8Subbands = false;  ///< true: 8 subbands, false: 4
    std::uint8_t bitpool = 0;

    constexpr std::uint32_t packed() const {
        return (isBigEndian ? kSbcFormatFlagIsBigEndian : 0U) |
               (std::uint32_t{blocks} << kBlocksShift) |
               (isSnr ? kSbcFormatFlagAllocationBits : 0U) |
               (is8Subbands ? kSbcFormatFlagIs8Subband : 0U) |
               (std::uint32_t{bitpool} << kBitpoolShift);
    }

    static constexpr SbcFormatFlags unpacked(std::uint32_t flags) {
        return {
            (flags & kSbcFormatFlagIsBigEndian) != 0,
            static_cast<std::uint8_t>((flags & kSbcFormatFlagBlocksBits) >> kBlocksShift),
            (flags & kSbcFormatFlagAllocationBits) != 0,
            (flags & kSbcFormatFlagIs8Subband) != 0,
            static_cast<std::uint8_t>((flags & kSbcFormatFlagBitPoolBits) >> kBitpoolShift),
        };
    }

 private:
    static constexpr auto kBlocksShift = std::countr_zero(kSbcFormatFlagBlocksBits);
    static constexpr auto kBitpoolShift = std::countr_zero(kSbcFormatFlagBitPoolBits);
};

}  // namespace zav
