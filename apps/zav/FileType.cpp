#include "FileType.hpp"

#include <algorithm>
#include <cctype>

namespace zavtool {

std::span<const FileType> fileTypes() {
    static const std::vector<FileType> types = {
        {zav::kAudioFileWAVEType, "WAVE", {"wav", "wave"}},
        {zav::kAudioFileRF64Type, "RF64", {"rf64"}},
        {zav::kAudioFileWave64Type, "W64", {"w64"}},
        {zav::kAudioFileAIFFType, "AIFF", {"aiff", "aif"}},
        {zav::kAudioFileAIFCType, "AIFC", {"aifc"}},
        {zav::kAudioFileCAFType, "CAF", {"caf"}},
        {zav::kAudioFileNextType, "AU", {"au", "snd"}},
        {zav::kAudioFileSBCType, "raw SBC", {"sbc"}},
    };
    return types;
}

std::string nameOfType(zav::AudioFileTypeID id) {
    for (const FileType& type : fileTypes()) {
        if (type.id == id) {
            return std::string(type.name);
        }
    }
    return zav::fourCharText(id);
}

std::string namesOfAllTypes() {
    std::vector<std::string> names;
    for (const FileType& type : fileTypes()) {
        names.emplace_back(type.name);
    }
    return listed(names);
}

std::string extensionsOfTypes(bool (*isWanted)(const FileType&)) {
    std::vector<std::string> extensions;
    for (const FileType& type : fileTypes()) {
        if (isWanted(type)) {
            extensions.push_back("." + std::string(type.extensions.front()));
        }
    }
    return listed(extensions);
}

const FileType* typeForName(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const FileType& type : fileTypes()) {
        if (std::find(type.extensions.begin(), type.extensions.end(), extension) !=
            type.extensions.end()) {
            return &type;
        }
    }
    return nullptr;
}

std::string listed(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool isLast = i + 1 == words.size();
        text += i == 0 ? "" : isLast ? " or " : ", ";
        text += words[i];
    }
    return text;
}

}  // namespace zavtool
