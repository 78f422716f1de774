#pragma once

#include <memory>

#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// The decoders and encoders of queues whose stream is not PCM, from the module that is built on
/// FFmpeg's libraries (`moduleTable`).
struct CompressedCodecs {
    static constexpr const char* kModuleName = "FFmpeg";
    static constexpr const char* kTableName = "Codecs";

    /// Both throw 'fmt?' for a format that they cannot do.
    std::unique_ptr<QueueDecoder> (*makeDecoder)(const AudioStreamBasicDescription& format);
    std::unique_ptr<QueueEncoder> (*makeEncoder)(const AudioStreamBasicDescription& format);
};

}  // namespace zav::detail
