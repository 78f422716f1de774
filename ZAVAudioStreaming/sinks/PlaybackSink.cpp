#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::uint32_t kMaximumBufferSize = 0x50000;
constexpr std::uint32_t kMinimumBufferSize = 0x4000;
constexpr double kBufferDurationInSeconds = 0.5;

std::uint32_t defaultBufferSize(std::uint32_t maxPacketSize,
                                const AudioStreamBasicDescription& format) {
    std::uint32_t size = std::max(kMaximumBufferSize, maxPacketSize);
    if (format.mFramesPerPacket != 0) {
        const auto packetCount = checkedTruncate<std::uint32_t>(
            format.mSampleRate / format.mFramesPerPacket * kBufferDurationInSeconds);
        size = checkedMultiply(maxPacketSize, packetCount);
    }
    // At least one packet has to fit.
    if (size > kMaximumBufferSize && size > maxPacketSize) {
        return kMaximumBufferSize;
    }
    return std::max(size, kMinimumBufferSize);
}

}  // namespace

PlaybackSink::PlaybackSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : upstream_(upstream) {}

void PlaybackSink::onMade(NodeKey, std::weak_ptr<PlaybackSink> self) {
    const AudioStreamBasicDescription format = inDataFormat();
    AudioQueueRef queue = nullptr;
    const OSStatus status = AudioQueueNewOutputWithDispatchQueue(
        &queue, &format, 0, &DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated),
        [weakSelf = std::move(self)](AudioQueueRef, AudioQueueBufferRef buffer) noexcept {
            if (const auto sink = weakSelf.lock()) {
                sink->takeBack(*buffer);
            }
        });
    if (status != noErr) {
        throw AudioQueueError::failure(status);
    }
    queue_.reset(queue);
}

void PlaybackSink::play() {
    if (delayPlaySchedule()) {
        fatalError(FatalCause::misuse, "");
    }
    if (const OSStatus status = AudioQueueStart(queue_.get(), nullptr); status != noErr) {
        throw AudioQueueError::failure(status);
    }
}

void PlaybackSink::autoPlay(double delayInSeconds) {
    if (isPlaying()) {
        fatalError(FatalCause::misuse, "autoPlay comes too late: the audio queue runs");
    }
    const std::lock_guard lock(mutex_);
    delayPlaySchedule_ = delayInSeconds;
}

void PlaybackSink::stop() {
    {
        const std::lock_guard lock(mutex_);
        delayPlaySchedule_.reset();
    }
    if (const OSStatus status = AudioQueueStop(queue_.get(), true); status != noErr) {
        throw AudioQueueError::failure(status);
    }
}

bool PlaybackSink::isPlaying() const {
    std::uint32_t isRunning = 0;
    if (const OSStatus status =
            readAudioQueueProperty(queue_.get(), kAudioQueueProperty_IsRunning, isRunning);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "The audio queue does not tell whether it runs");
    }
    return isRunning != 0;
}

bool PlaybackSink::hasPlayedAll() const {
    std::uint32_t hasPlayedAll = 0;
    if (const OSStatus status =
            readAudioQueueProperty(queue_.get(), kAudioQueueProperty_HasPlayedAll, hasPlayedAll);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status,
                   "The audio queue does not tell whether it has played all");
    }
    return hasPlayedAll != 0;
}

double PlaybackSink::timeStamp() const {
    AudioTimeStamp now;
    if (const OSStatus status = AudioQueueGetCurrentTime(queue_.get(), nullptr, &now, nullptr);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "The audio queue does not tell its time");
    }
    return now.mSampleTime / inDataFormat().mSampleRate;
}

std::uint32_t PlaybackSink::queueBufferSize() {
    {
        const std::lock_guard lock(mutex_);
        if (queueBufferSize_) {
            return *queueBufferSize_;
        }
    }
    std::uint32_t maxPacketSize = 4;
    // Best effort: the size is a guess anyway.
    static_cast<void>(readAudioQueueProperty(
        queue_.get(), kAudioQueueProperty_MaximumOutputPacketSize, maxPacketSize));
    const std::uint32_t size = defaultBufferSize(maxPacketSize, inDataFormat());
    const std::lock_guard lock(mutex_);
    if (!queueBufferSize_) {
        queueBufferSize_ = size;
    }
    return *queueBufferSize_;
}

void PlaybackSink::setQueueBufferSize(std::uint32_t sizeInBytes) {
    const std::lock_guard lock(mutex_);
    queueBufferSize_ = sizeInBytes;
}

std::uint32_t PlaybackSink::maxPacketNumForBuffer() {
    std::uint32_t maxPacketSize = 0;
    if (const OSStatus status = readAudioQueueProperty(
            queue_.get(), kAudioQueueProperty_MaximumOutputPacketSize, maxPacketSize);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status,
                   "The audio queue does not tell the size of its packets");
    }
    return checkedDivide(queueBufferSize(), maxPacketSize);
}

std::function<void()> PlaybackSink::audioDataAcquireHandler() const {
    std::unique_lock lock(mutex_);
    const auto handler = audioDataAcquireHandler_;
    lock.unlock();  // to copy it may run code of the application
    return handler ? *handler : nullptr;
}

void PlaybackSink::setAudioDataAcquireHandler(std::function<void()> handler) {
    std::shared_ptr<const std::function<void()>> exchanged;
    if (handler) {
        exchanged = std::make_shared<const std::function<void()>>(std::move(handler));
    }
    const std::lock_guard lock(mutex_);
    audioDataAcquireHandler_.swap(exchanged);
}

bool PlaybackSink::paused() const {
    const std::lock_guard lock(mutex_);
    return paused_;
}

std::optional<double> PlaybackSink::delayPlaySchedule() const {
    const std::lock_guard lock(mutex_);
    return delayPlaySchedule_;
}

std::size_t PlaybackSink::allocatedBufferCount() const {
    const std::lock_guard lock(mutex_);
    return allocatedBuffers_.size();
}

std::size_t PlaybackSink::idleBufferCount() const {
    const std::lock_guard lock(mutex_);
    return idleBuffers_.size();
}

void PlaybackSink::onAudioStreamFlowStart() {}

void PlaybackSink::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                                const AudioStreamPacketDescription* packetDescriptions) {
    if (size == 0 || queue_ == nullptr) {
        return;
    }
    std::span input(static_cast<const std::byte*>(bytes), checkedCast<std::size_t>(size));
    bool hasEnqueued = false;
    while (!input.empty()) {
        const std::uint32_t bufferSize = queueBufferSize();
        const std::lock_guard events(events_);
        AudioQueueBuffer& buffer = bufferToFill(bufferSize);
        const std::size_t room = buffer.mAudioDataBytesCapacity - buffer.mAudioDataByteSize;
        const auto taken = input.first(std::min(input.size(), room));
        std::copy(taken.begin(), taken.end(),
                  static_cast<std::byte*>(buffer.mAudioData) + buffer.mAudioDataByteSize);
        buffer.mAudioDataByteSize += static_cast<std::uint32_t>(taken.size());
        input = input.subspan(taken.size());

        // A buffer from before the size was raised may be full and never reach the half.
        const std::uint32_t filledSize = buffer.mAudioDataByteSize;
        if (filledSize < bufferSize / 2 && filledSize < buffer.mAudioDataBytesCapacity) {
            break;
        }
        const std::uint32_t packetCount =
            packetDescriptions != nullptr ? checkedCast<std::uint32_t>(packetNum) : 0;
        if (AudioQueueEnqueueBuffer(queue_.get(), &buffer, packetCount, packetDescriptions) !=
            noErr) {
            return;
        }
        dropFirstIdle();
        hasEnqueued = true;
        printDiagnostics("[Playback] did enqueue " + std::to_string(filledSize) +
                         " bytes for playback");
    }
    if (hasEnqueued) {
        startWhenDue();
    }
}

/// The first idle buffer, a new one when there is none. In an event.
AudioQueueBuffer& PlaybackSink::bufferToFill(std::uint32_t sizeInBytes) {
    if (idleBuffers_.empty()) {
        AudioQueueBufferRef buffer = nullptr;
        if (const OSStatus status = AudioQueueAllocateBuffer(queue_.get(), sizeInBytes, &buffer);
            status != noErr) {
            fatalError(FatalCause::audioQueue, status, "Can not allocate buffer");
        }
        const std::lock_guard lock(mutex_);
        fatalWithoutMemory([&] {
            allocatedBuffers_.push_back(buffer);
            idleBuffers_.reserve(allocatedBuffers_.size());  // the callback takes no memory
        });
        idleBuffers_.push_back(buffer);
    }
    return *idleBuffers_.front();
}

/// The buffer is with the queue now. In an event.
void PlaybackSink::dropFirstIdle() {
    const std::lock_guard lock(mutex_);
    idleBuffers_.erase(idleBuffers_.begin());
}

void PlaybackSink::setPaused(bool paused) {
    const std::lock_guard lock(mutex_);
    paused_ = paused;
}

/// Resumes what the sink has paused, or starts what has been scheduled.
void PlaybackSink::startWhenDue() {
    // The upstream is only asked when its answer counts, and under no lock: its code may be the
    // application's.
    std::optional<AudioStreamBasicDescription> format;
    if (delayPlaySchedule() && !paused()) {
        format = inDataFormat();
    }
    const std::lock_guard events(events_);
    if (paused_) {
        // All that was enqueued may have been played since, and the pause be newer than that.
        if (enqueuedBufferCount() == 0) {
            return;
        }
        static_cast<void>(AudioQueueStart(queue_.get(), nullptr));
        printDiagnostics("Resume playing");
        setPaused(false);
        return;
    }
    // A stop comes before or after the start, not in between.
    const std::lock_guard lock(mutex_);
    if (delayPlaySchedule_ && format) {
        const std::uint32_t bytesPerSecond = checkedMultiply(
            checkedTruncate<std::uint32_t>(format->mSampleRate), format->mBytesPerFrame);
        if (*delayPlaySchedule_ * bytesPerSecond <= enqueuedByteCount()) {
            delayPlaySchedule_.reset();
            // Best effort: a queue that does not start keeps its audio, and `isPlaying` tells.
            static_cast<void>(AudioQueueStart(queue_.get(), nullptr));
        }
    }
}

/// Bytes of all buffers that are with the queue. In an event.
std::uint32_t PlaybackSink::enqueuedByteCount() const {
    std::uint64_t byteCount = 0;
    for (const AudioQueueBuffer* const buffer : allocatedBuffers_) {
        if (std::find(idleBuffers_.begin(), idleBuffers_.end(), buffer) == idleBuffers_.end()) {
            byteCount += buffer->mAudioDataByteSize;
        }
    }
    return checkedCast<std::uint32_t>(byteCount);
}

void PlaybackSink::takeBack(AudioQueueBuffer& buffer) {
    std::shared_ptr<const std::function<void()>> handler;
    {
        const std::lock_guard events(events_);
        buffer.mAudioDataByteSize = 0;
        {
            const std::lock_guard lock(mutex_);
            idleBuffers_.push_back(&buffer);
            handler = audioDataAcquireHandler_;
        }
        if (!isPlaying()) {
            return;
        }
        if (enqueuedBufferCount() == 0) {
            printDiagnostics(
                "Enqueued audio bytes are exhausted, pause playing and resume when more audio "
                "bytes are available.");
            const OSStatus status = AudioQueuePause(queue_.get());
            printDiagnostics("Pause Audio Queue result: " + std::to_string(status));
            setPaused(true);
        }
    }
    if (handler) {
        try {
            (*handler)();
        } catch (...) {
            // Its audio is missing, and that is its own affair: playing goes on with what comes.
        }
    }
}

void PlaybackSink::onAudioStreamFlowEnd() {
    if (queue_ == nullptr) {
        return;
    }
    const std::lock_guard events(events_);
    printDiagnostics("Stream ended");
    enqueueRest();
    if (isPlaying() || !delayPlaySchedule()) {
        printDiagnostics("Stop when the enqueued audio bytes exhaused.");
    } else {
        if (enqueuedBufferCount() == 0) {
            return;
        }
        printDiagnostics("Start playing due to audio stream end");
        static_cast<void>(AudioQueueStart(queue_.get(), nullptr));
    }
    AudioQueueStop(queue_.get(), false);
}

/// Gives the queue the buffer that is partly filled, and lets a paused queue go on with it.
/// `paused_` stays as it is: the next flow starts the queue again. In an event.
void PlaybackSink::enqueueRest() {
    if (idleBuffers_.empty() || idleBuffers_.front()->mAudioDataByteSize == 0) {
        return;
    }
    // Best effort: a buffer that the queue refuses is lost with its audio.
    static_cast<void>(AudioQueueEnqueueBuffer(queue_.get(), idleBuffers_.front(), 0, nullptr));
    dropFirstIdle();
    if (paused_) {
        printDiagnostics("Resume playing the last remained bytes");
        static_cast<void>(AudioQueueStart(queue_.get(), nullptr));
    }
}

}  // namespace zav
