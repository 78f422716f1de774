#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// The bits of a sample before ALAC or FLAC encoded it. 0 where that is not told.
namespace zav::detail {

/// ALAC and FLAC.
bool isLossless(AVCodecID codec);

/// By the record: its flags, or else `mBitsPerChannel`.
std::uint32_t sourceDepthOf(const AudioStreamBasicDescription& format);

/// The flag for a depth; 0 for a depth that has none.
std::uint32_t sourceDepthFlag(std::uint32_t depth);

/// By a bare magic cookie.
std::uint32_t sourceDepthInCookie(AVCodecID codec, std::span<const std::byte> cookie);

}  // namespace zav::detail
