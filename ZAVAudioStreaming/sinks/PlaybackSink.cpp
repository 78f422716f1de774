#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/platform/OwnedAudioQueue.hpp"
#include "ZAVAudioStreaming/support/BufferPool.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/LiveNodes.hpp"
#include "ZAVAudioStreaming/support/Mutex.hpp"
#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav {

using namespace detail;

namespace {

/// Appends as much of `input` to the buffer's audio as fits. Returns the rest.
std::span<const std::byte> append(std::span<const std::byte> input, AudioQueueBuffer& buffer) {
    const std::size_t room = buffer.mAudioDataBytesCapacity - buffer.mAudioDataByteSize;
    const auto taken = input.first(std::min(input.size(), room));
    std::ranges::copy(taken,
                      static_cast<std::byte*>(buffer.mAudioData) + buffer.mAudioDataByteSize);
    buffer.mAudioDataByteSize += static_cast<std::uint32_t>(taken.size());
    return input.subspan(taken.size());
}

}  // namespace

/// The queue of a sink, its buffers, and the operations on both.
class detail::PlaybackSinkImpl {
 public:
    using Handler = std::shared_ptr<const std::function<void()>>;

    explicit PlaybackSinkImpl(const PlaybackSink& sink) : sink_(sink) {}

    void setQueue(AudioQueueRef queue) { queue_.reset(queue); }
    AudioQueueRef queue() const { return queue_.get(); }
    const BufferPool<AudioQueueBuffer>& buffers() const { return buffers_; }

    std::uint32_t bufferSize() ZAV_EXCLUDES(mutex_);
    void setBufferSize(std::uint32_t sizeInBytes) ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        bufferSize_ = sizeInBytes;
    }
    Handler handler() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return handler_;
    }
    void setHandler(Handler handler) ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        handler_.swap(handler);  // the old handler is destroyed unlocked
    }
    std::optional<double> schedule() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return schedule_;
    }
    void setSchedule(std::optional<double> delayInSeconds) ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        schedule_ = delayInSeconds;
    }
    bool paused() const ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return paused_;
    }

    /// Copies `input` into buffers and enqueues each buffer that is at least half full. Starts the
    /// queue if a buffer was enqueued and the start is due.
    void receiveAudio(std::span<const std::byte> input, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions);
    /// Enqueues the rest and lets the queue stop when everything has been played.
    void endFlow() ZAV_EXCLUDES(events_);
    /// Takes a buffer that the queue has played or given back.
    void takeBack(AudioQueueBuffer& buffer) ZAV_EXCLUDES(events_);

 private:
    AudioQueueBuffer& bufferToFill(std::uint32_t sizeInBytes) ZAV_REQUIRES(events_);
    void enqueueRest() ZAV_REQUIRES(events_);
    void pauseWhenDry() ZAV_REQUIRES(events_);
    void startWhenDue() ZAV_EXCLUDES(events_);
    void resume() ZAV_REQUIRES(events_);
    void startWhenScheduled(const AudioStreamBasicDescription& format) ZAV_REQUIRES(events_);
    void setPaused(bool paused) ZAV_REQUIRES(events_) ZAV_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        paused_ = paused;
    }

    const PlaybackSink& sink_;

    /// Held during one event. In an event, the sink decides about its buffers, calls the queue and
    /// prints lines about the event. So the lines come in the order of the events, and the sink
    /// never pauses a queue that contains audio. Holding it is safe, because no function of the
    /// queue runs a callback.
    Mutex events_;
    /// The pool and the contents of its buffers change in events only.
    BufferPool<AudioQueueBuffer> buffers_;

    mutable Mutex mutex_ ZAV_ACQUIRED_AFTER(events_);  ///< no line is printed under it
    std::optional<std::uint32_t> bufferSize_ ZAV_GUARDED_BY(mutex_);
    Handler handler_ ZAV_GUARDED_BY(mutex_);
    std::optional<double> schedule_ ZAV_GUARDED_BY(mutex_);
    bool paused_ ZAV_GUARDED_BY(mutex_) = false;  ///< changes in events only

    OwnedAudioQueue queue_;  // last: destroyed before the members that callbacks use
};

std::uint32_t PlaybackSinkImpl::bufferSize() {
    MutexLock lock(mutex_);
    if (!bufferSize_) {
        lock.unlock();  // the upstream may be the application's code
        std::uint32_t maxPacketSize = 4;
        // Best effort: the size is only a guess.
        static_cast<void>(readAudioQueueProperty(
            queue(), kAudioQueueProperty_MaximumOutputPacketSize, maxPacketSize));
        const std::uint32_t size = playbackBufferSize(sink_.inDataFormat(), maxPacketSize);
        lock.lock();
        bufferSize_ = bufferSize_.value_or(size);
    }
    return *bufferSize_;
}

void PlaybackSinkImpl::receiveAudio(std::span<const std::byte> input, std::uint64_t packetNum,
                                    const AudioStreamPacketDescription* packetDescriptions) {
    bool hasEnqueued = false;
    while (!input.empty()) {
        const std::uint32_t size = bufferSize();
        const MutexLock events(events_);
        AudioQueueBuffer& buffer = bufferToFill(size);
        input = append(input, buffer);

        // An older buffer may be smaller than half of a size that was raised later. Enqueue it when
        // full.
        const std::uint32_t filledSize = buffer.mAudioDataByteSize;
        if (filledSize < size / 2 && filledSize < buffer.mAudioDataBytesCapacity) {
            break;
        }
        const std::uint32_t packetCount =
            packetDescriptions != nullptr ? checkedCast<std::uint32_t>(packetNum) : 0;
        if (AudioQueueEnqueueBuffer(queue(), &buffer, packetCount, packetDescriptions) != noErr) {
            return;
        }
        buffers_.useFirstIdle();
        hasEnqueued = true;
        printDiagnostics("[Playback] did enqueue " + std::to_string(filledSize) +
                         " bytes for playback");
    }
    if (hasEnqueued) {
        startWhenDue();
    }
}

/// The first idle buffer, or a new one of `sizeInBytes` if none is idle.
AudioQueueBuffer& PlaybackSinkImpl::bufferToFill(std::uint32_t sizeInBytes) {
    if (AudioQueueBuffer* const idle = buffers_.firstIdle()) {
        return *idle;
    }
    AudioQueueBufferRef buffer = nullptr;
    if (const OSStatus status = AudioQueueAllocateBuffer(queue(), sizeInBytes, &buffer);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "Can not allocate buffer");
    }
    fatalWithoutMemory([&] { buffers_.add(*buffer); });
    return *buffer;
}

/// Resumes a queue that the sink has paused, or starts a queue that `autoPlay` has scheduled.
void PlaybackSinkImpl::startWhenDue() {
    // Ask the upstream only if its answer is needed. Hold no lock: the upstream may be the
    // application's code.
    std::optional<AudioStreamBasicDescription> format;
    if (schedule() && !paused()) {
        format = sink_.inDataFormat();
    }
    const MutexLock events(events_);
    if (paused()) {
        resume();
    } else if (format) {
        startWhenScheduled(*format);
    }
}

void PlaybackSinkImpl::resume() {
    // The queue may have played all new buffers already, and the sink may have paused it after
    // that.
    if (buffers_.isAnyInUse()) {
        static_cast<void>(AudioQueueStart(queue(), nullptr));
        printDiagnostics("Resume playing");
        setPaused(false);
    }
}

void PlaybackSinkImpl::startWhenScheduled(const AudioStreamBasicDescription& format) {
    // Hold the lock: a stop must not come between the check of the schedule and the start.
    const MutexLock lock(mutex_);
    if (!schedule_) {
        return;
    }
    const std::uint32_t bytesPerSecond =
        checkedMultiply(checkedTruncate<std::uint32_t>(format.mSampleRate), format.mBytesPerFrame);
    const auto enqueuedByteCount = buffers_.sumInUse(&AudioQueueBuffer::mAudioDataByteSize);
    if (*schedule_ * bytesPerSecond <= checkedCast<std::uint32_t>(enqueuedByteCount)) {
        schedule_.reset();
        // Best effort: a queue that does not start keeps its audio, and `isPlaying` is false.
        static_cast<void>(AudioQueueStart(queue(), nullptr));
    }
}

void PlaybackSinkImpl::takeBack(AudioQueueBuffer& buffer) {
    Handler called;
    {
        const MutexLock events(events_);
        buffer.mAudioDataByteSize = 0;
        buffers_.giveBack(buffer);
        called = handler();
        if (!sink_.isPlaying()) {
            return;
        }
        pauseWhenDry();
    }
    if (called) {
        try {
            (*called)();
        } catch (...) {
            // Only the application's handler has failed. Playing continues with the audio that is
            // pushed.
        }
    }
}

void PlaybackSinkImpl::pauseWhenDry() {
    if (buffers_.isAnyInUse()) {
        return;
    }
    printDiagnostics(
        "Enqueued audio bytes are exhausted, pause playing and resume when more audio bytes are "
        "available.");
    const OSStatus status = AudioQueuePause(queue());
    printDiagnostics("Pause Audio Queue result: " + std::to_string(status));
    setPaused(true);
}

void PlaybackSinkImpl::endFlow() {
    const MutexLock events(events_);
    printDiagnostics("Stream ended");
    enqueueRest();
    if (sink_.isPlaying() || !schedule()) {
        printDiagnostics("Stop when the enqueued audio bytes exhaused.");
    } else if (buffers_.isAnyInUse()) {
        printDiagnostics("Start playing due to audio stream end");
        static_cast<void>(AudioQueueStart(queue(), nullptr));
    } else {
        return;
    }
    static_cast<void>(AudioQueueStop(queue(), false));
}

/// Enqueues the partly filled buffer and then resumes a paused queue. `paused_` stays true, so the
/// next flow starts the queue again.
void PlaybackSinkImpl::enqueueRest() {
    AudioQueueBuffer* const rest = buffers_.firstIdle();
    if (rest == nullptr || rest->mAudioDataByteSize == 0) {
        return;
    }
    // Best effort: a buffer that the queue refuses is lost with its audio.
    static_cast<void>(AudioQueueEnqueueBuffer(queue(), rest, 0, nullptr));
    buffers_.useFirstIdle();
    if (paused()) {
        printDiagnostics("Resume playing the last remained bytes");
        static_cast<void>(AudioQueueStart(queue(), nullptr));
    }
}

PlaybackSink::PlaybackSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream)
    : upstream_(upstream), impl_(std::make_unique<PlaybackSinkImpl>(*this)) {}

PlaybackSink::~PlaybackSink() = default;

void PlaybackSink::onMade(NodeKey, std::weak_ptr<PlaybackSink> self) {
    const AudioStreamBasicDescription format = inDataFormat();
    AudioQueueRef queue = nullptr;
    throwOnQueueFailure(AudioQueueNewOutputWithDispatchQueue(
        &queue, &format, 0, &DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated),
        [weakSelf = std::move(self)](AudioQueueRef, AudioQueueBufferRef buffer) noexcept {
            if (const auto sink = weakSelf.lock()) {
                sink->impl_->takeBack(*buffer);
            }
        }));
    impl_->setQueue(queue);
}

void PlaybackSink::play() {
    if (delayPlaySchedule()) {
        fatalError(FatalCause::misuse, "");
    }
    throwOnQueueFailure(AudioQueueStart(audioQueueRef(), nullptr));
}

void PlaybackSink::autoPlay(double delayInSeconds) {
    if (isPlaying()) {
        fatalError(FatalCause::misuse, "autoPlay comes too late: the audio queue runs");
    }
    impl_->setSchedule(delayInSeconds);
}

void PlaybackSink::stop() {
    impl_->setSchedule(std::nullopt);
    throwOnQueueFailure(AudioQueueStop(audioQueueRef(), true));
}

bool PlaybackSink::isPlaying() const {
    return requireAudioQueueProperty(audioQueueRef(), kAudioQueueProperty_IsRunning,
                                     "The audio queue does not report whether it runs") != 0;
}

bool PlaybackSink::hasPlayedAll() const {
    return requireAudioQueueProperty(audioQueueRef(), kAudioQueueProperty_HasPlayedAll,
                                     "The audio queue does not report whether it has played all") !=
           0;
}

double PlaybackSink::timeStamp() const {
    AudioTimeStamp now;
    if (const OSStatus status = AudioQueueGetCurrentTime(audioQueueRef(), nullptr, &now, nullptr);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "The audio queue does not report its time");
    }
    return now.mSampleTime / inDataFormat().mSampleRate;
}

std::uint32_t PlaybackSink::queueBufferSize() {
    return impl_->bufferSize();
}

void PlaybackSink::setQueueBufferSize(std::uint32_t sizeInBytes) {
    impl_->setBufferSize(sizeInBytes);
}

std::uint32_t PlaybackSink::maxPacketNumForBuffer() {
    const std::uint32_t maxPacketSize =
        requireAudioQueueProperty(audioQueueRef(), kAudioQueueProperty_MaximumOutputPacketSize,
                                  "The audio queue does not report the size of its packets");
    return checkedDivide(queueBufferSize(), maxPacketSize);
}

std::function<void()> PlaybackSink::audioDataAcquireHandler() const {
    const auto handler = impl_->handler();
    return handler ? *handler : nullptr;
}

void PlaybackSink::setAudioDataAcquireHandler(std::function<void()> handler) {
    impl_->setHandler(handler ? std::make_shared<const std::function<void()>>(std::move(handler))
                              : nullptr);
}

bool PlaybackSink::paused() const {
    return impl_->paused();
}

std::optional<double> PlaybackSink::delayPlaySchedule() const {
    return impl_->schedule();
}

std::size_t PlaybackSink::allocatedBufferCount() const {
    return impl_->buffers().count();
}

std::size_t PlaybackSink::idleBufferCount() const {
    return impl_->buffers().idleCount();
}

AudioQueueRef PlaybackSink::audioQueueRef() const noexcept {
    return impl_->queue();
}

void PlaybackSink::receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                                const AudioStreamPacketDescription* packetDescriptions) {
    if (size == 0 || audioQueueRef() == nullptr) {
        return;
    }
    impl_->receiveAudio({static_cast<const std::byte*>(bytes), checkedCast<std::size_t>(size)},
                        packetNum, packetDescriptions);
}

void PlaybackSink::onAudioStreamFlowEnd() {
    if (audioQueueRef() != nullptr) {
        impl_->endFlow();
    }
}

}  // namespace zav
