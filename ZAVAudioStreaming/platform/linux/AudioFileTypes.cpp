#include "ZAVAudioStreaming/platform/linux/AudioFileTypes.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "ZAVAudioStreaming/platform/linux/FfmpegModule.hpp"
#include "ZAVAudioStreaming/platform/linux/PcmFileStructure.hpp"
#include "ZAVAudioStreaming/platform/linux/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/platform/linux/SbcFileReader.hpp"
#include "ZAVAudioStreaming/platform/linux/SbcFileWriter.hpp"
#include "ZAVAudioStreaming/platform/linux/SndfileReader.hpp"
#include "ZAVAudioStreaming/platform/linux/SndfileWriter.hpp"

namespace zav {

namespace {

/// The types of the drivers that are part of the library, and of the module's if it is there.
std::vector<AudioFileTypeID> allTypes(
    std::span<const AudioFileTypeID> (*FfmpegModule::*typesOfModule)()) {
    std::vector<AudioFileTypeID> types;
    for (const PcmFileType& type : pcmFileTypes()) {
        types.push_back(type.fileType);
    }
    types.push_back(kAudioFileSBCType);
    if (const FfmpegModule* const module = ffmpegModule()) {
        for (const AudioFileTypeID type : (module->*typesOfModule)()) {
            if (std::find(types.begin(), types.end(), type) == types.end()) {
                types.push_back(type);
            }
        }
    }
    return types;
}

}  // namespace

std::unique_ptr<AudioFileReader> openAudioFile(FileHandle file) {
    const auto structure = examinePcmFile(file);
    if (structure && !structure->isCompressed) {
        return std::make_unique<SndfileReader>(std::move(file), *structure);
    }
    if (const auto firstFrame = firstSbcFrame(file)) {
        return std::make_unique<SbcFileReader>(std::move(file), *firstFrame);
    }
    if (const FfmpegModule* const module = ffmpegModule()) {
        if (auto reader = module->openAudioFile(file)) {
            return reader;
        }
    }
    throw StatusFailure(structure ? kAudioFileUnsupportedDataFormatError
                                  : kAudioFileUnsupportedFileTypeError);
}

std::unique_ptr<AudioFileWriter> createAudioFile(const std::filesystem::path& path,
                                                 FileHandle::IfExists ifExists,
                                                 AudioFileTypeID fileType,
                                                 const AudioStreamBasicDescription& dataFormat) {
    const PcmFileType* const pcmType = findPcmFileType(fileType);
    if (pcmType != nullptr && isPcmFormat(dataFormat)) {
        const int sndfileFormat = sndfileFormatFor(*pcmType, dataFormat);
        return std::make_unique<SndfileWriter>(FileHandle::create(path, ifExists), *pcmType,
                                               sndfileFormat, dataFormat);
    }
    if (fileType == kAudioFileSBCType) {
        requireSbcFormat(dataFormat);
        return std::make_unique<SbcFileWriter>(FileHandle::create(path, ifExists), dataFormat);
    }
    if (const FfmpegModule* const module = ffmpegModule()) {
        if (auto writer = module->createAudioFile(path, ifExists, fileType, dataFormat)) {
            return writer;
        }
    }
    throw StatusFailure(pcmType != nullptr ? kAudioFileUnsupportedDataFormatError
                                           : kAudioFileUnsupportedFileTypeError);
}

std::vector<AudioFileTypeID> readableAudioFileTypes() {
    return allTypes(&FfmpegModule::readableTypes);
}

std::vector<AudioFileTypeID> writableAudioFileTypes() {
    return allTypes(&FfmpegModule::writableTypes);
}

}  // namespace zav
