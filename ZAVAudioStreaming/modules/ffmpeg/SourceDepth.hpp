#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// The source depth of lossless codecs: the bits of a sample before ALAC or FLAC encoded it. 0 if
/// it is unknown.
namespace zav::detail {

/// True for ALAC and FLAC.
bool isLossless(AVCodecID codec);

/// The depth from the record's flags. If the flags give none, the depth is `mBitsPerChannel`.
std::uint32_t sourceDepthOf(const AudioStreamBasicDescription& format);

/// The record's flag for a depth; 0 if the depth has none.
std::uint32_t sourceDepthFlag(std::uint32_t depth);

/// The depth in a bare magic cookie.
std::uint32_t sourceDepthInCookie(AVCodecID codec, std::span<const std::byte> cookie);

}  // namespace zav::detail
