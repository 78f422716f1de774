#include "ZAVAudioStreaming/sinks/ContainerFileSink.hpp"

#include <algorithm>
#include <system_error>
#include <utility>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav {

using namespace detail;

ContainerFileSink::ContainerFileSink(const std::shared_ptr<AudioStreamOutputable>& upstream,
                                     std::filesystem::path fileUrl)
    : fileURL_(std::move(fileUrl)), upstream_(upstream) {
    try {
        FileHandle::create(fileURL_, FileHandle::IfExists::replace);
    } catch (const std::system_error&) {
        throw AudioFileError::create();
    }
}

bool ContainerFileSink::hasRateOf(std::span<const double> ratesInHz,
                                  const AudioStreamOutputable& upstream) {
    const double rate = upstream.outDataFormat().mSampleRate;
    return std::find(ratesInHz.begin(), ratesInHz.end(), rate) != ratesInHz.end();
}

bool ContainerFileSink::isMonoOrStereo(const AudioStreamOutputable& upstream) {
    const std::uint32_t channels = upstream.outDataFormat().mChannelsPerFrame;
    return channels == 1 || channels == 2;
}

void ContainerFileSink::onAudioStreamFlowStart() {
    try {
        fileHandle_ = FileHandle::openForWriting(fileURL_);
        writeFileMeta();
    } catch (const std::system_error& error) {
        fatalError(FatalCause::containerOpening, error.code().value(), error.what());
    }
}

void ContainerFileSink::onAudioStreamFlowEnd() {
    fileHandle();
    fileHandle_.reset();
}

void ContainerFileSink::fillCommonFields(ContainerFileHeader& header) const {
    header.sampleRate = checkedTruncate<std::uint32_t>(inDataFormat().mSampleRate);
    header.channels = checkedCast<std::uint16_t>(inDataFormat().mChannelsPerFrame);
}

FileHandle& ContainerFileSink::fileHandle() {
    if (!fileHandle_) {
        fatalError(FatalCause::misuse, "No container file is open");
    }
    return *fileHandle_;
}

}  // namespace zav
