#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Finds the reader for a file by its first bytes. Throws 'typ?' when there is none.
std::unique_ptr<AudioFileReader> openAudioFile(FileHandle file);

/// Makes the writer for a type. Throws 'typ?' or 'fmt?' before the file at `path` is touched.
std::unique_ptr<AudioFileWriter> createAudioFile(const std::filesystem::path& path,
                                                 FileHandle::IfExists ifExists,
                                                 AudioFileTypeID fileType,
                                                 const AudioStreamBasicDescription& dataFormat);

/// All types that can be read and written, each once; the module is loaded to find out.
std::vector<AudioFileTypeID> readableAudioFileTypes();
std::vector<AudioFileTypeID> writableAudioFileTypes();

}  // namespace zav::detail
