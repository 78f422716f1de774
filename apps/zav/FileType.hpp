#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zavtool {

/// Types of the library's own, which are none of the audio file service's.
inline constexpr zav::AudioFileTypeID kOpusContainerType = zav::fourCharCode("zopu");
inline constexpr zav::AudioFileTypeID kSbcContainerType = zav::fourCharCode("zsbc");

struct FileType {
    zav::AudioFileTypeID id;
    std::string_view name;
    std::vector<std::string_view> extensions;  ///< the first one is the usual one
    bool holdsPcm;
};

std::span<const FileType> fileTypes();

/// Whether files of this type are read and written by the audio file service.
bool isAudioFileType(const FileType& type);

/// Whether `zav encode` writes files of this type by default.
bool holdsSbc(const FileType& type);
bool holdsOpus(const FileType& type);

/// Whether files of this type hold 16-bit samples only with the high byte first.
bool holdsHighBytesFirst(const FileType& type);

/// Whether the library's module for compressed files is there.
bool canReadCompressedFiles();

/// The library's node that writes files of this type.
std::string_view nodeNameOf(const FileType& type);

/// "WAVE", "raw SBC", ...; the four characters of a type that is not in the list.
std::string nameOfType(zav::AudioFileTypeID id);
/// ".wav, .wave, ... or .sbc", of the types that `isWanted` says yes to.
std::string extensionsOfTypes(bool (*isWanted)(const FileType&));

/// The type that a file's name asks for, by its extension; null when that is unknown.
const FileType* typeForName(const std::filesystem::path& path);

/// "a, b or c".
std::string listed(const std::vector<std::string>& words);

}  // namespace zavtool
