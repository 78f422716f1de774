#include "ZAVAudioStreaming/sources/RecordSource.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::uint64_t kQueueBufferCount = 3;
constexpr std::uint32_t kMaximumCaptureSize = 0x50000;
constexpr double kCaptureDurationInSeconds = 0.5;

// Fixed names of these places, so that reports of all versions can be compared.
constexpr SourcePosition kEnqueuePosition{"RecordSource", 33};
constexpr SourcePosition kIsRecordingPosition{"RecordSource", 174};
constexpr SourcePosition kTimeStampPosition{"RecordSource", 184};
constexpr SourcePosition kMagicCookiePosition{"RecordSource", 195};

}  // namespace

RecordSource::RecordSource(NodeKey, const AudioStreamBasicDescription& dataFormat)
    : outDataFormat_(dataFormat) {
    AudioQueueRef queue = nullptr;
    if (const OSStatus status =
            AudioQueueNewInput(&dataFormat, onBuffer, this, nullptr, nullptr, 0, &queue);
        status != noErr) {
        throw AudioQueueError::failure(status);
    }
    queue_.reset(queue);

    // Asked with no room, and without looking at the status: a queue that answers all the same
    // knows better, any other leaves the format as it was asked for.
    std::uint32_t room = 0;
    static_cast<void>(AudioQueueGetProperty(queue, kAudioQueueProperty_StreamDescription,
                                            &outDataFormat_, &room));

    const std::uint32_t bufferSize = queueBufferSize();
    for (std::uint64_t i = 0; i < kQueueBufferCount; ++i) {
        AudioQueueBufferRef buffer = nullptr;
        if (AudioQueueAllocateBuffer(queue, bufferSize, &buffer) != noErr) {
            throw AudioQueueError::failure(noErr);  // the status stays here, on purpose
        }
        // Ignored on purpose: with fewer buffers the queue still captures, though a flow without
        // the third one does not end.
        static_cast<void>(AudioQueueEnqueueBuffer(queue, buffer, 0, nullptr));
    }
}

void RecordSource::onMade(NodeKey, std::weak_ptr<RecordSource> self) {
    self_ = std::move(self);
}

void RecordSource::record() {
    const auto self = self_.lock();  // a target may drop the last other reference
    printDiagnostics("Start recording");
    // The first buffer may come back before the targets know that the flow starts.
    const std::lock_guard lock(targetsMutex_);
    if (const OSStatus status = AudioQueueStart(queue_.get(), nullptr); status != noErr) {
        throw AudioQueueError::failure(status);
    }
    downstreams_.onAudioStreamFlowStart();
}

void RecordSource::stop(std::function<void()> completion) {
    const auto self = self_.lock();  // a target or a completion may drop the last other reference
    printDiagnostics("Stop recording");
    if (const OSStatus status = AudioQueueStop(queue_.get(), true); status != noErr) {
        throw AudioQueueError::failure(status);
    }
    {
        const std::lock_guard lock(mutex_);
        if (!flowHasEnded_) {
            stopCompletionHandler_.swap(completion);
            return;
        }
    }
    // The last buffer came back before we could store it, or nothing was there to stop.
    if (completion) {
        completion();
    }
}

bool RecordSource::isRecording() const {
    std::uint32_t isRunning = 0;
    if (const OSStatus status =
            readAudioQueueProperty(queue_.get(), kAudioQueueProperty_IsRunning, isRunning);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "", kIsRecordingPosition);
    }
    return isRunning != 0;
}

double RecordSource::timeStamp() const {
    AudioTimeStamp now;
    if (const OSStatus status = AudioQueueGetCurrentTime(queue_.get(), nullptr, &now, nullptr);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "", kTimeStampPosition);
    }
    return now.mSampleTime / outDataFormat_.mSampleRate;
}

std::vector<std::byte> RecordSource::magicCookie() const {
    std::uint32_t size = 0;
    if (const OSStatus status =
            AudioQueueGetPropertySize(queue_.get(), kAudioQueueProperty_MagicCookie, &size);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "", kMagicCookiePosition);
    }
    std::vector<std::byte> cookie(size);
    // Best effort: the size was there, and zeros are the answer of a queue that cannot tell.
    static_cast<void>(
        AudioQueueGetProperty(queue_.get(), kAudioQueueProperty_MagicCookie, cookie.data(), &size));
    return cookie;
}

std::uint32_t RecordSource::queueBufferSize() const {
    std::uint32_t packetSize = outDataFormat_.mBytesPerPacket;
    if (packetSize == 0) {
        // When this fails, too, no buffer can be allocated.
        static_cast<void>(readAudioQueueProperty(
            queue_.get(), kAudioQueueProperty_MaximumOutputPacketSize, packetSize));
    }
    const double size =
        std::ceil(outDataFormat_.mSampleRate * kCaptureDurationInSeconds * packetSize);
    return std::min(checkedTruncate<std::uint32_t>(size), kMaximumCaptureSize);
}

void RecordSource::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    downstreams_.add(std::move(target));
}

void RecordSource::onBuffer(void* userData, AudioQueueRef /*queue*/, AudioQueueBufferRef buffer,
                            const AudioTimeStamp* /*startTime*/, std::uint32_t packetCount,
                            const AudioStreamPacketDescription* packetDescriptions) noexcept {
    if (userData == nullptr) {
        fatalError(FatalCause::brokenService, "A queue's callback came without its source");
    }
    // A target or a completion may drop the last other reference. Nobody owns a source that is
    // being destroyed: the end of its queue waits for this call.
    if (const auto self = static_cast<RecordSource*>(userData)->self_.lock()) {
        self->takeBuffer(*buffer, packetCount, packetDescriptions);
    }
}

void RecordSource::takeBuffer(AudioQueueBuffer& buffer, std::uint32_t packetCount,
                              const AudioStreamPacketDescription* packetDescriptions) {
    if (const std::uint32_t size = buffer.mAudioDataByteSize; size != 0) {
        const std::uint32_t packetNum =
            packetCount != 0 ? packetCount : checkedDivide(size, outDataFormat_.mBytesPerPacket);
        const std::lock_guard lock(targetsMutex_);
        downstreams_.receiveAudio(buffer.mAudioData, size, packetNum, packetDescriptions);
    }
    ++idleQueueBufferCount_;

    if (isRecording()) {
        if (const OSStatus status = AudioQueueEnqueueBuffer(queue_.get(), &buffer, 0, nullptr);
            status != noErr) {
            fatalError(FatalCause::audioQueue, status, "", kEnqueuePosition);
        }
        --idleQueueBufferCount_;
        return;
    }
    printDiagnostics("[RecordSource] recording is not playing");
    if (idleQueueBufferCount_ == kQueueBufferCount) {
        endFlow();
    }
}

void RecordSource::endFlow() {
    printDiagnostics("[RecordSource] recording is stopped");
    {
        const std::lock_guard lock(targetsMutex_);
        downstreams_.onAudioStreamFlowEnd();
    }
    std::function<void()> completion;
    {
        const std::lock_guard lock(mutex_);
        flowHasEnded_ = true;
        completion.swap(stopCompletionHandler_);
    }
    if (completion) {
        completion();
    }
}

}  // namespace zav
