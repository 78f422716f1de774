#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::detail {

/// Upper bound of the packet sizes of a stream, in bytes. If the codec's definition has a bound,
/// this is the bound. For ALAC and FLAC, the bound is the size of a packet of uncompressed samples.
/// The bare magic cookie gives the frames and the depth of such a packet. A value that is not in
/// the cookie comes from the record. A value that is in neither is the codec's usual maximum.
std::uint32_t largestPacket(AVCodecID codec, const AudioStreamBasicDescription& format,
                            std::span<const std::byte> cookie);

}  // namespace zav::detail
