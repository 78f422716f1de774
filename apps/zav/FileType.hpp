#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zavtool {

struct FileType {
    zav::AudioFileTypeID id;
    std::string_view name;
    std::vector<std::string_view> extensions;  ///< the first one is the usual one
};

std::span<const FileType> fileTypes();

/// "WAVE", "raw SBC", ...; the four characters of a type that is not in the list.
std::string nameOfType(zav::AudioFileTypeID id);
/// "WAVE, RF64, ... or raw SBC".
std::string namesOfAllTypes();
/// ".wav, .rf64, ... or .sbc", of the types that `isWanted` says yes to.
std::string extensionsOfTypes(bool (*isWanted)(const FileType&));

/// The type that a file's name asks for, by its extension; null when that is unknown.
const FileType* typeForName(const std::filesystem::path& path);

/// "a, b or c".
std::string listed(const std::vector<std::string>& words);

}  // namespace zavtool
