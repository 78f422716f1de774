#include "ZAVAudioStreaming/files/AudioFileTypes.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "ZAVAudioStreaming/files/CompressedFiles.hpp"
#include "ZAVAudioStreaming/files/PcmFileReader.hpp"
#include "ZAVAudioStreaming/files/PcmFileStructure.hpp"
#include "ZAVAudioStreaming/files/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/files/PcmFileWriter.hpp"
#include "ZAVAudioStreaming/files/RawSbcReader.hpp"
#include "ZAVAudioStreaming/files/RawSbcWriter.hpp"
#include "ZAVAudioStreaming/posix/LoadModule.hpp"

namespace zav::detail {

namespace {

/// The types of the library's own drivers, and of the module if it is installed.
std::vector<AudioFileTypeID> allTypes(
    std::span<const AudioFileTypeID> (*CompressedFiles::*typesOfModule)()) {
    std::vector<AudioFileTypeID> types;
    for (const PcmFileType& type : pcmFileTypes()) {
        types.push_back(type.fileType);
    }
    types.push_back(kAudioFileSBCType);
    if (const auto* const module = moduleTable<CompressedFiles>()) {
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
        return std::make_unique<PcmFileReader>(std::move(file), *structure);
    }
    if (const auto firstFrame = firstSbcFrame(file)) {
        return std::make_unique<RawSbcReader>(std::move(file), *firstFrame);
    }
    if (const auto* const module = moduleTable<CompressedFiles>()) {
        if (auto reader = module->open(file)) {
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
        return std::make_unique<PcmFileWriter>(FileHandle::create(path, ifExists), *pcmType,
                                               sndfileFormat, dataFormat);
    }
    if (fileType == kAudioFileSBCType) {
        requireSbcFormat(dataFormat);
        return std::make_unique<RawSbcWriter>(FileHandle::create(path, ifExists), dataFormat);
    }
    if (const auto* const module = moduleTable<CompressedFiles>()) {
        if (auto writer = module->create(path, ifExists, fileType, dataFormat)) {
            return writer;
        }
    }
    throw StatusFailure(pcmType != nullptr ? kAudioFileUnsupportedDataFormatError
                                           : kAudioFileUnsupportedFileTypeError);
}

std::vector<AudioFileTypeID> readableAudioFileTypes() {
    return allTypes(&CompressedFiles::readableTypes);
}

std::vector<AudioFileTypeID> writableAudioFileTypes() {
    return allTypes(&CompressedFiles::writableTypes);
}

}  // namespace zav::detail
