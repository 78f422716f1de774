#pragma once

#include <memory>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

/// Converts the PCM formats that queues take and devices do not: signed 8 bits, unsigned 16 to 32
/// bits, 24 bits in the low part of 32, floats of 64 bits. Each format is converted to the nearest
/// format of `QueueDevice`. The conversion is lossless, except that floats of 64 bits become floats
/// of 32 bits.
namespace zav::detail {

/// Returns the device's format for this stream. It is the stream's own format if possible. Returns
/// nothing if the stream is not PCM, or is PCM that queues do not take. A-law and mu-law count as
/// PCM.
std::optional<AudioStreamBasicDescription> pcmOfDevice(const AudioStreamBasicDescription& stream);

/// Both make a converter between `stream` and `pcmOfDevice(stream)`, which must exist. They return
/// null if the two formats have the same bytes.
std::unique_ptr<QueueDecoder> makePcmDecoder(const AudioStreamBasicDescription& stream);
std::unique_ptr<QueueEncoder> makePcmEncoder(const AudioStreamBasicDescription& stream);

}  // namespace zav::detail
