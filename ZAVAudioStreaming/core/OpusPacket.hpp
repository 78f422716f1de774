#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zav {

/// Rate in Hz. Opus counts all durations at this rate, independent of the rate of the encoded
/// audio.
inline constexpr std::uint32_t kOpusRate = 48000;

/// Frames at 48 kHz in an Opus packet, computed from its first two bytes (RFC 6716, section 3.1). 0
/// if the packet is empty or invalid. A packet is invalid if it is longer than 120 ms or lacks the
/// byte that counts its frames.
constexpr std::uint32_t opusFrameCount(std::span<const std::byte> packet) {
    if (packet.empty()) {
        return 0;
    }
    const auto toc = std::to_integer<std::uint32_t>(packet[0]);
    const std::uint32_t configuration = toc >> 3U;
    std::uint32_t frameSize = 0;
    if (configuration < 12) {  // SILK: 10, 20, 40, 60 ms
        frameSize = (configuration & 3U) == 3 ? 2880 : 480U << (configuration & 3U);
    } else if (configuration < 16) {  // hybrid: 10, 20 ms
        frameSize = 480U << (configuration & 1U);
    } else {  // CELT: 2.5, 5, 10, 20 ms
        frameSize = 120U << (configuration & 3U);
    }
    std::uint32_t count = (toc & 3U) == 0 ? 1 : 2;
    if ((toc & 3U) == 3) {
        count = packet.size() < 2 ? 0 : std::to_integer<std::uint32_t>(packet[1]) & 0x3FU;
    }
    constexpr std::uint32_t kMostFrames = kOpusRate * 120 / 1000;
    return frameSize * count > kMostFrames ? 0 : frameSize * count;
}

/// Reads the 16 bits at `offset` of an identification header, lowest byte first. The header must be
/// long enough.
constexpr std::uint16_t opusHeadField(std::span<const std::byte> opusHead, std::size_t offset) {
    return static_cast<std::uint16_t>(std::to_integer<std::uint32_t>(opusHead[offset]) |
                                      std::to_integer<std::uint32_t>(opusHead[offset + 1]) << 8U);
}

/// Frames at 48 kHz that a player drops at the start of a stream. `opusHead` is the identification
/// header (RFC 7845, section 5.1), which is the magic cookie of Opus files. 0 if the header is too
/// short.
constexpr std::uint32_t opusPreSkip(std::span<const std::byte> opusHead) {
    constexpr std::size_t kOffset = 10;
    return opusHead.size() < kOffset + 2 ? 0 : opusHeadField(opusHead, kOffset);
}

/// Gain factor from the same header. A player multiplies decoded samples by it. 1 if the header is
/// too short.
inline double opusGain(std::span<const std::byte> opusHead) {
    constexpr std::size_t kOffset = 16;  // a signed number of 1/256 decibels
    if (opusHead.size() < kOffset + 2) {
        return 1;
    }
    const auto gain = static_cast<std::int16_t>(opusHeadField(opusHead, kOffset));
    return std::pow(10.0, gain / (20.0 * 256.0));
}

}  // namespace zav
