#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zav {

/// Opus counts all durations at this rate, whatever rate was encoded from.
inline constexpr std::uint32_t kOpusRate = 48000;

/// Frames at 48 kHz in an Opus packet, by its first bytes (RFC 6716, section 3.1). Empty for a
/// packet without bytes and for more than the 120 ms that a packet can have.
std::optional<std::uint32_t> opusFrameCount(std::span<const std::byte> packet);

/// The identification header of a stream of one or two channels (RFC 7845, section 5.1).
/// `preSkip` is in frames at 48 kHz, `inputRate` in Hz.
std::vector<std::byte> makeOpusHead(std::uint32_t channels, std::uint16_t preSkip,
                                    std::uint32_t inputRate);

/// The frames at 48 kHz that a decoder drops at the start, by an identification header.
std::uint32_t preSkipOf(std::span<const std::byte> opusHead);

}  // namespace zav
