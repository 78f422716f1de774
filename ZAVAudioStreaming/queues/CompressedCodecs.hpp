#pragma once

#include <memory>

#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// Decoders and encoders for queues whose stream is not PCM. They are in the module that uses
/// FFmpeg's libraries (`moduleTable`).
struct CompressedCodecs {
    static constexpr const char* kModuleName = "FFmpeg";
    static constexpr const char* kTableName = "Codecs";

    /// Both throw 'fmt?' for a format that they do not support.
    std::unique_ptr<QueueDecoder> (*makeDecoder)(const AudioStreamBasicDescription& format);
    std::unique_ptr<QueueEncoder> (*makeEncoder)(const AudioStreamBasicDescription& format);
};

}  // namespace zav::detail
