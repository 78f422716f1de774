#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Chooses a reader by the first bytes of the file. Throws 'typ?' if the type is unknown, 'fmt?' if
/// the audio cannot be read, 'dta?' if the file is broken.
std::unique_ptr<AudioFileReader> openAudioFile(FileHandle file);

/// Makes a writer of the given type. Throws 'typ?' for an unknown type and 'fmt?' for a format that
/// the type cannot hold. Throws both before it touches the file at `path`.
std::unique_ptr<AudioFileWriter> createAudioFile(const std::filesystem::path& path,
                                                 FileHandle::IfExists ifExists,
                                                 AudioFileTypeID fileType,
                                                 const AudioStreamBasicDescription& dataFormat);

/// All types that can be read or written. Each type is listed once. These calls load the module for
/// compressed files.
std::vector<AudioFileTypeID> readableAudioFileTypes();
std::vector<AudioFileTypeID> writableAudioFileTypes();

}  // namespace zav::detail
