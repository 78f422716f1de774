#pragma once

#include <memory>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

/// The PCM that queues know and devices do not: signed 8 bits, unsigned 16 to 32 bits, 24 bits in
/// the low part of 32, floats of 64 bits. All are changed into their nearest neighbour without
/// loss, but for floats of 64 bits, of which a device takes the upper half.
namespace zav::detail {

/// The format in which a device carries this stream: the stream's own where it can be. Empty for
/// what is no PCM (A-law and mu-law count as such) that queues take.
std::optional<AudioStreamBasicDescription> pcmOfDevice(const AudioStreamBasicDescription& stream);

/// Between `stream` and `pcmOfDevice(stream)`, which there is; null where both are the same bytes.
std::unique_ptr<QueueDecoder> makePcmDecoder(const AudioStreamBasicDescription& stream);
std::unique_ptr<QueueEncoder> makePcmEncoder(const AudioStreamBasicDescription& stream);

}  // namespace zav::detail
