#include "ZAVAudioStreaming/platform/linux/AudioFileTypes.hpp"

#include <optional>
#include <utility>

#include "ZAVAudioStreaming/platform/linux/PcmFileStructure.hpp"
#include "ZAVAudioStreaming/platform/linux/PcmFileTypes.hpp"
#include "ZAVAudioStreaming/platform/linux/SbcFileReader.hpp"
#include "ZAVAudioStreaming/platform/linux/SbcFileWriter.hpp"
#include "ZAVAudioStreaming/platform/linux/SndfileReader.hpp"
#include "ZAVAudioStreaming/platform/linux/SndfileWriter.hpp"

namespace zav {

std::unique_ptr<AudioFileReader> openAudioFile(FileHandle file) {
    if (const auto structure = examinePcmFile(file)) {
        return std::make_unique<SndfileReader>(std::move(file), *structure);
    }
    if (const auto firstFrame = firstSbcFrame(file)) {
        return std::make_unique<SbcFileReader>(std::move(file), *firstFrame);
    }
    throw AudioFileFailure(kAudioFileUnsupportedFileTypeError);
}

std::unique_ptr<AudioFileWriter> createAudioFile(const std::filesystem::path& path,
                                                 FileHandle::IfExists ifExists,
                                                 AudioFileTypeID fileType,
                                                 const AudioStreamBasicDescription& dataFormat) {
    if (const PcmFileType* pcmType = findPcmFileType(fileType)) {
        const int sndfileFormat = sndfileFormatFor(*pcmType, dataFormat);
        return std::make_unique<SndfileWriter>(FileHandle::create(path, ifExists), *pcmType,
                                               sndfileFormat, dataFormat);
    }
    if (fileType == kAudioFileSBCType) {
        requireSbcFormat(dataFormat);
        return std::make_unique<SbcFileWriter>(FileHandle::create(path, ifExists), dataFormat);
    }
    throw AudioFileFailure(kAudioFileUnsupportedFileTypeError);
}

}  // namespace zav
