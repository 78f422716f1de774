#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

/// SBC frames as they stand in a file (A2DP, appendix B):
///
///     byte 0   0x9C, the sync byte
///     byte 1   frequency (2 bits), blocks (2), mode (2), allocation (1), subbands (1)
///     byte 2   bitpool
///     byte 3   CRC-8 over bytes 1, 2 and what follows byte 3 up to the samples
namespace zav::detail {

/// The bytes that decide about a frame's length.
inline constexpr std::size_t kSbcHeaderSize = 3;
/// Longer than any frame: 16 blocks x 2 channels x bitpool 255 take 1020 bytes and the head.
inline constexpr std::size_t kLongestSbcFrame = 1100;

/// Length in bytes of the frame that begins with these `kSbcHeaderSize` bytes. Empty when they
/// begin no frame.
std::optional<std::uint32_t> sbcFrameLength(const std::byte* header);

/// Format of the frame at the start of the file, and so of the stream. Empty when no whole valid
/// frame stands there.
std::optional<AudioStreamBasicDescription> firstSbcFrame(const FileHandle& file);

}  // namespace zav::detail
