#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::detail {

/// Upper bound of the packet sizes of a stream, in bytes. It comes from the codec's definition, if
/// that has a bound. For ALAC and FLAC it is the size of a packet of uncompressed samples. The bare
/// magic cookie gives their frames and depth, or else the record, or else the codec's maximum.
std::uint32_t largestPacket(AVCodecID codec, const AudioStreamBasicDescription& format,
                            std::span<const std::byte> cookie);

}  // namespace zav::detail
