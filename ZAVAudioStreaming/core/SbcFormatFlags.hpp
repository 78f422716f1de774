#pragma once

#include <array>
#include <bit>
#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav {

/// Rates that SBC has, in the order of its codes.
inline constexpr std::array<std::uint32_t, 4> kSbcRatesInHz = {16000, 32000, 44100, 48000};

/// `mFormatFlags` of an SBC stream, taken apart. `blocks` is libsbc's code: 0, 1, 2, 3 for 4, 8,
/// 12, 16 blocks.
struct SbcFormatFlags {
    bool isBigEndian = false;
    std::uint8_t blocks = 0;
    bool isSnr = false;
    bool is8Subbands = false;
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
