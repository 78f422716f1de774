#pragma once

#include <filesystem>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// The drivers for compressed files. They are built on FFmpeg's libraries, which cost a program
/// many times what the rest of this library does to start; so they are a module, loaded when a file
/// is first opened or created that is none of ours (`moduleTable`).
///
/// The module has copies of the few classes that both sides use; exceptions pass between the two
/// because types are compared by name.
struct CompressedFiles {
    static constexpr const char* kModuleName = "FFmpeg";
    static constexpr const char* kTableName = "Files";

    /// Null when the file is of none of the module's types; `file` is then left as it was.
    /// Throws 'fmt?', 'dta?' and what `FileHandle` throws.
    std::unique_ptr<AudioFileReader> (*open)(FileHandle& file);

    /// Null when the type is none of the module's. Throws 'fmt?' before the file is touched.
    std::unique_ptr<AudioFileWriter> (*create)(const std::filesystem::path& path,
                                               FileHandle::IfExists ifExists,
                                               AudioFileTypeID fileType,
                                               const AudioStreamBasicDescription& dataFormat);

    std::span<const AudioFileTypeID> (*readableTypes)();
    std::span<const AudioFileTypeID> (*writableTypes)();
};

}  // namespace zav::detail
