#include "ZAVAudioStreaming/sinks/FileSink.hpp"

#include <string>
#include <utility>

#include "ZAVAudioStreaming/platform/AudioFileProperty.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr auto kNoFileOpen = "No audio file is open";

}  // namespace

FileSink::FileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                   std::filesystem::path fileUrl, AudioFileTypeID fileFormat)
    : fileURL_(std::move(fileUrl)), fileFormat_(fileFormat), upstream_(upstream) {}

FileSink::~FileSink() {
    if (fileID_ != nullptr) {
        // A destructor cannot report a failure.
        static_cast<void>(AudioFileClose(fileID_));
    }
}

double FileSink::estimatedDuration() const {
    return fileID_ == nullptr
               ? 0.0
               : audioFileProperty<double>(fileID_, kAudioFilePropertyEstimatedDuration);
}

void FileSink::setMagicCookie(std::span<const std::byte> magicCookie) {
    if (fileID_ == nullptr) {
        fatalError(FatalCause::misuse, kNoFileOpen);
    }
    if (const OSStatus status = AudioFileSetProperty(fileID_, kAudioFilePropertyMagicCookieData,
                                                     checkedCast<std::uint32_t>(magicCookie.size()),
                                                     magicCookie.data());
        status != noErr) {
        fatalError(FatalCause::fileProperty, status, "");
    }
}

void FileSink::onAudioStreamFlowStart() {
    const AudioStreamBasicDescription format = inDataFormat();
    if (fileID_ != nullptr) {
        // The previous flow has not ended. Close its file before the new one replaces it.
        static_cast<void>(AudioFileClose(std::exchange(fileID_, nullptr)));
    }
    if (const OSStatus status = AudioFileCreateWithURL(fileURL_, fileFormat_, &format,
                                                       kAudioFileFlags_EraseFile, &fileID_);
        status != noErr) {
        fatalError(FatalCause::fileCreation, status, "Creating audio file failed");
    }
}

void FileSink::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                            const AudioStreamPacketDescription* packetDescriptions) {
    if (fileID_ == nullptr) {
        return;
    }
    auto packetCount = checkedCast<std::uint32_t>(packetNum);
    const auto byteCount = checkedCast<std::uint32_t>(size);
    if (const OSStatus status = AudioFileWritePackets(fileID_, false, byteCount, packetDescriptions,
                                                      curPacketIdx_, &packetCount, bytes);
        status != noErr) {
        fatalError(FatalCause::fileWriting, status,
                   "Writing packets to file failed: " + std::to_string(status));
    }
    curPacketIdx_ += packetCount;
}

void FileSink::onAudioStreamFlowEnd() {
    if (fileID_ == nullptr) {
        fatalError(FatalCause::misuse, kNoFileOpen);
    }
    // Ignored on purpose: nothing more can be written, and the flow is over either way.
    static_cast<void>(AudioFileClose(std::exchange(fileID_, nullptr)));
}

}  // namespace zav
