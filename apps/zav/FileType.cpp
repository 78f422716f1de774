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
        {zav::kAudioFileMP3Type, "MP3", {"mp3"}},
        {zav::kAudioFileAAC_ADTSType, "ADTS", {"aac", "adts"}},
        {zav::kAudioFileM4AType, "M4A", {"m4a"}},
        {zav::kAudioFileMPEG4Type, "MP4", {"mp4"}},
        {zav::kAudioFileFLACType, "FLAC", {"flac"}},
        {zav::kAudioFileOggType, "Ogg", {"ogg", "oga", "opus"}},
        {zav::kAudioFileAC3Type, "AC-3", {"ac3"}},
        {zav::kAudioFileAMRType, "AMR", {"amr"}},
        {zav::kAudioFileSBCType, "raw SBC", {"sbc"}},
        {kSbcContainerType, "SBC container", {"zsbc"}},
        {kOpusContainerType, "Opus container", {"zopus"}},
    };
    return types;
}

bool isAudioFileType(const FileType& type) {
    return type.id != kSbcContainerType && type.id != kOpusContainerType;
}

bool holdsPcm(const FileType& type) {
    switch (type.id) {
        case zav::kAudioFileWAVEType:
        case zav::kAudioFileRF64Type:
        case zav::kAudioFileWave64Type:
        case zav::kAudioFileAIFFType:
        case zav::kAudioFileAIFCType:
        case zav::kAudioFileCAFType:
        case zav::kAudioFileNextType:
            return true;
        default:
            return false;
    }
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

std::string namesOfTypes(const TypeFilter& isWanted) {
    std::vector<std::string> names;
    for (const FileType& type : fileTypes()) {
        if (isWanted(type)) {
            names.emplace_back(type.name);
        }
    }
    return listed(names);
}

std::string extensionsOfTypes(const TypeFilter& isWanted) {
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
