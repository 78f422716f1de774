#pragma once

#include <memory>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

/// Formats of PCM that queues take and devices do not: signed 8 bits, unsigned 16 to 32 bits, 24
/// bits in the low part of 32, floats of 64 bits. Each is converted to the nearest format of
/// `QueueDevice`, without loss except for floats of 64 bits, which become 32 bits.
namespace zav::detail {

/// The format in which a device carries this stream: the stream's own if possible. Empty if the
/// stream is not PCM (A-law and mu-law count as PCM), or PCM that queues do not take.
std::optional<AudioStreamBasicDescription> pcmOfDevice(const AudioStreamBasicDescription& stream);

/// Convert between `stream` and `pcmOfDevice(stream)`, which must exist. Null if both are the same
/// bytes.
std::unique_ptr<QueueDecoder> makePcmDecoder(const AudioStreamBasicDescription& stream);
std::unique_ptr<QueueEncoder> makePcmEncoder(const AudioStreamBasicDescription& stream);

}  // namespace zav::detail
