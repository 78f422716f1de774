#include "FileType.hpp"

#include <algorithm>
#include <cctype>

namespace zavtool {

std::span<const FileType> fileTypes() {
    static const std::vector<FileType> types = {
        {zav::kAudioFileWAVEType, "WAVE", {"wav", "wave"}, true},
        {zav::kAudioFileRF64Type, "RF64", {"rf64"}, true},
        {zav::kAudioFileWave64Type, "W64", {"w64"}, true},
        {zav::kAudioFileAIFFType, "AIFF", {"aiff", "aif"}, true},
        {zav::kAudioFileAIFCType, "AIFC", {"aifc"}, true},
        {zav::kAudioFileCAFType, "CAF", {"caf"}, true},
        {zav::kAudioFileNextType, "AU", {"au", "snd"}, true},
        {zav::kAudioFileMP3Type, "MP3", {"mp3"}, false},
        {zav::kAudioFileAAC_ADTSType, "ADTS", {"aac", "adts"}, false},
        {zav::kAudioFileM4AType, "M4A", {"m4a"}, false},
        {zav::kAudioFileMPEG4Type, "MP4", {"mp4"}, false},
        {zav::kAudioFileFLACType, "FLAC", {"flac"}, false},
        {zav::kAudioFileOggType, "Ogg", {"ogg", "oga", "opus"}, false},
        {zav::kAudioFileAC3Type, "AC-3", {"ac3"}, false},
        {zav::kAudioFileAMRType, "AMR", {"amr"}, false},
        {zav::kAudioFileSBCType, "raw SBC", {"sbc"}, false},
        {kSbcContainerType, "SBC container", {"zsbc"}, false},
        {kOpusContainerType, "Opus container", {"zopus"}, false},
    };
    return types;
}

bool isAudioFileType(const FileType& type) {
    return type.id != kSbcContainerType && type.id != kOpusContainerType;
}

bool holdsSbc(const FileType& type) {
    return type.id == zav::kAudioFileSBCType || type.id == kSbcContainerType;
}

bool holdsOpus(const FileType& type) {
    return type.id == zav::kAudioFileOggType || type.id == kOpusContainerType;
}

bool holdsHighBytesFirst(const FileType& type) {
    return type.id == zav::kAudioFileAIFFType || type.id == zav::kAudioFileNextType;
}

bool canReadCompressedFiles() {
    std::uint32_t size = 0;
    if (zav::AudioFileGetGlobalInfoSize(zav::kAudioFileGlobalInfo_ReadableTypes, 0, nullptr,
                                        &size) != zav::noErr) {
        return false;
    }
    std::vector<zav::AudioFileTypeID> types(size / sizeof(zav::AudioFileTypeID));
    return zav::AudioFileGetGlobalInfo(zav::kAudioFileGlobalInfo_ReadableTypes, 0, nullptr, &size,
                                       types.data()) == zav::noErr &&
           std::find(types.begin(), types.end(), zav::kAudioFileMP3Type) != types.end();
}

std::string_view nodeNameOf(const FileType& type) {
    if (type.id == kSbcContainerType) {
        return "ZAVSbcFileSink";
    }
    return type.id == kOpusContainerType ? "ZAVOpusFileSink" : "FileSink";
}

std::string nameOfType(zav::AudioFileTypeID id) {
    for (const FileType& type : fileTypes()) {
        if (type.id == id) {
            return std::string(type.name);
        }
    }
    return zav::fourCharText(id);
}

std::string extensionsOfTypes(bool (*isWanted)(const FileType&)) {
    std::vector<std::string> extensions;
    for (const FileType& type : fileTypes()) {
        for (const std::string_view extension : type.extensions) {
            if (isWanted(type)) {
                extensions.push_back("." + std::string(extension));
            }
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
