#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::detail {

/// Bytes that no packet of a stream exceeds, by the codec's own definition where it has one. Of
/// ALAC and FLAC the packets that hold the samples as they are: by the record, or what it leaves
/// open by the bare magic cookie, or what the codec has at most.
std::uint32_t largestPacket(AVCodecID codec, const AudioStreamBasicDescription& format,
                            std::span<const std::byte> cookie);

}  // namespace zav::detail
