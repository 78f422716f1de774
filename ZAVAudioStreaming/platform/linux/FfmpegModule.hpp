#pragma once

#include <filesystem>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/platform/FileHandle.hpp"
#include "ZAVAudioStreaming/platform/linux/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/linux/QueueCodec.hpp"

namespace zav {

/// What the module built on FFmpeg's libraries does for the platform layer. Those libraries cost a
/// program many times what the rest of this one does to start, so they stand in a module that is
/// loaded when something is first asked of it.
///
/// The module has copies of the few classes that both sides use; exceptions pass between the two
/// because types are told apart by name.
struct FfmpegModule {
    /// Null when the file is of none of the module's types; `file` is then left as it was.
    /// Throws 'fmt?', 'dta?' and what `FileHandle` throws.
    std::unique_ptr<AudioFileReader> (*openAudioFile)(FileHandle& file);

    /// Null when the type is none of the module's. Throws 'fmt?' before the file is touched.
    std::unique_ptr<AudioFileWriter> (*createAudioFile)(
        const std::filesystem::path& path, FileHandle::IfExists ifExists, AudioFileTypeID fileType,
        const AudioStreamBasicDescription& dataFormat);

    std::span<const AudioFileTypeID> (*readableTypes)();
    std::span<const AudioFileTypeID> (*writableTypes)();

    /// Decoders and encoders of audio queues. Both throw 'fmt?' for a format that they cannot do.
    std::unique_ptr<QueueDecoder> (*makeQueueDecoder)(const AudioStreamBasicDescription& format);
    std::unique_ptr<QueueEncoder> (*makeQueueEncoder)(const AudioStreamBasicDescription& format);
};

/// The module, loaded by the first call; null when it is not there or is of another version
/// (`loadModule`). Any thread may ask.
const FfmpegModule* ffmpegModule();

}  // namespace zav
