#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zavtool {

/// The library's own containers. The audio file service does not have these types.
inline constexpr zav::AudioFileTypeID kOpusContainerType = zav::fourCharCode("zopu");
inline constexpr zav::AudioFileTypeID kSbcContainerType = zav::fourCharCode("zsbc");

/// A type of file, with the names and extensions that a user types.
struct FileType {
    zav::AudioFileTypeID id;
    std::string_view name;
    std::vector<std::string_view> extensions;  ///< the first one is the usual one
};

/// Every type, in the order of help and error texts.
std::span<const FileType> fileTypes();

/// True if the audio file service reads and writes files of this type.
bool isAudioFileType(const FileType& type);

/// True if files of this type hold this kind of audio by default.
bool holdsPcm(const FileType& type);
bool holdsSbc(const FileType& type);
bool holdsOpus(const FileType& type);

/// True if 16-bit samples in files of this type are always big-endian.
bool holdsHighBytesFirst(const FileType& type);

/// True if the library's module for compressed files is installed.
bool canReadCompressedFiles();

/// The library's node that writes files of this type.
std::string_view nodeNameOf(const FileType& type);

/// "WAVE", "raw SBC", ... For a type that is not in the list: the four characters of its ID.
std::string nameOfType(zav::AudioFileTypeID id);

using TypeFilter = std::function<bool(const FileType&)>;
/// "WAVE, RF64, ... or AU": the names of the types for which `isWanted` returns true.
std::string namesOfTypes(const TypeFilter& isWanted);
/// ".wav, .wave, ... or .sbc": all extensions of these types.
std::string extensionsOfTypes(const TypeFilter& isWanted);

/// The type for a file's extension. Null if the extension is unknown.
const FileType* typeForName(const std::filesystem::path& path);

/// "a, b or c".
std::string listed(const std::vector<std::string>& words);

}  // namespace zavtool
