#pragma once

#include <filesystem>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// The drivers for compressed files, as a module exports them.
///
/// They use FFmpeg's libraries, which multiply the start time and memory of a program. So the
/// drivers are in a module. `moduleTable` loads the module when an application opens or creates a
/// file that the library's own drivers do not handle.
///
/// The module contains copies of the few classes that both sides use. Exceptions can still pass
/// from one side to the other, because exception types are compared by name.
struct CompressedFiles {
    static constexpr const char* kModuleName = "FFmpeg";
    static constexpr const char* kTableName = "Files";

    /// Opens a file of one of the module's types and takes ownership of `file`. For other types,
    /// returns null and leaves `file` unchanged. Throws 'fmt?', 'dta?' and the errors of
    /// `FileHandle`.
    std::unique_ptr<AudioFileReader> (*open)(FileHandle& file);

    /// Creates a file. Returns null if the type is not one of the module's. Throws 'fmt?' before it
    /// touches the file.
    std::unique_ptr<AudioFileWriter> (*create)(const std::filesystem::path& path,
                                               FileHandle::IfExists ifExists,
                                               AudioFileTypeID fileType,
                                               const AudioStreamBasicDescription& dataFormat);

    std::span<const AudioFileTypeID> (*readableTypes)();
    std::span<const AudioFileTypeID> (*writableTypes)();
};

}  // namespace zav::detail
