#include "ZAVAudioStreaming/sources/FileSource.hpp"

#include <cstddef>
#include <utility>

#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/platform/AudioFileProperty.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"

namespace zav {

using namespace detail;

namespace {

AudioFileID openForReading(const std::filesystem::path& fileURL) {
    AudioFileID file = nullptr;
    if (const OSStatus status = AudioFileOpenURL(fileURL, kAudioFileReadPermission, 0, &file);
        status != noErr) {
        throw AudioFileError::open(status);
    }
    if (file == nullptr) {
        fatalError(FatalCause::brokenService,
                   "The file service opened a file and gave no ID for it");
    }
    return file;
}

}  // namespace

void FileSource::Close::operator()(AudioFileID file) const {
    // Ignored on purpose: the file was only read, so a failure to close loses nothing.
    static_cast<void>(AudioFileClose(file));
}

FileSource::FileSource(NodeKey, const std::filesystem::path& fileURL)
    : fileID_(openForReading(fileURL)) {}

AudioStreamBasicDescription FileSource::outDataFormat() const {
    return audioFileProperty<AudioStreamBasicDescription>(fileID_.get(),
                                                          kAudioFilePropertyDataFormat);
}

std::uint32_t FileSource::packetSizeUpperBound() const {
    return audioFileProperty<std::uint32_t>(fileID_.get(), kAudioFilePropertyPacketSizeUpperBound);
}

float FileSource::progress() const {
    const auto packetCount =
        audioFileProperty<std::uint64_t>(fileID_.get(), kAudioFilePropertyAudioDataPacketCount);
    return static_cast<float>(curPacketIdx_) / static_cast<float>(packetCount);
}

std::int64_t FileSource::readPackets(std::int64_t count) {
    if (curPacketIdx_ == 0) {
        downstreams_.onAudioStreamFlowStart();
    }
    auto packetCount = checkedCast<std::uint32_t>(count);
    auto byteCount = checkedMultiply(packetCount, packetSizeUpperBound());
    ChunkBuffer buffer(byteCount);
    if (const OSStatus status = AudioFileReadPacketData(fileID_.get(), false, &byteCount, nullptr,
                                                        curPacketIdx_, &packetCount, buffer.data());
        status != noErr) {
        throw AudioFileError::read(status);
    }
    if (packetCount == 0) {
        downstreams_.onAudioStreamFlowEnd();
        return 0;
    }
    curPacketIdx_ += packetCount;
    downstreams_.receiveAudio(buffer.data(), byteCount, packetCount, nullptr);
    return packetCount;
}

void FileSource::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

}  // namespace zav
