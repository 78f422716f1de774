#include "ZAVAudioStreaming/sources/RecordSource.hpp"

#include <atomic>
#include <utility>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/platform/OwnedAudioQueue.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/LiveNodes.hpp"
#include "ZAVAudioStreaming/support/Mutex.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::uint64_t kQueueBufferCount = 3;

// The names and numbers of these positions are fixed.
constexpr SourcePosition kEnqueuePosition{"RecordSource", 33};
constexpr SourcePosition kIsRecordingPosition{"RecordSource", 174};
constexpr SourcePosition kTimeStampPosition{"RecordSource", 184};
constexpr SourcePosition kMagicCookiePosition{"RecordSource", 195};

}  // namespace

/// The queue of a source, its targets, and the flow from the queue to the targets.
class detail::RecordSourceImpl {
 public:
    explicit RecordSourceImpl(const AudioStreamBasicDescription& dataFormat);
    /// Functions that run the application's code hold the owner during the call, because that code
    /// may drop the last other reference.
    void setOwner(std::weak_ptr<RecordSource> owner) { owner_ = std::move(owner); }

    void record();
    void stop(std::function<void()> completion) ZAV_EXCLUDES(mutex_);
    bool isRecording() const;
    std::uint32_t bufferSize() const;
    std::uint64_t idleBufferCount() const { return idleBufferCount_; }
    AudioQueueRef queue() const { return queue_.get(); }

    const AudioStreamBasicDescription& dataFormat() const { return dataFormat_; }
    /// Returns the targets without a lock. Follow the thread rules of `RecordSource`.
    const StreamTargets& targets() const { return targets_; }
    void addTarget(std::shared_ptr<AudioStreamInputable> target) {
        const MutexLock lock(targetCalls_);
        targets_.add(std::move(target));
    }

 private:
    static void onBuffer(void* userData, AudioQueueRef queue, AudioQueueBufferRef buffer,
                         const AudioTimeStamp* startTime, std::uint32_t packetCount,
                         const AudioStreamPacketDescription* packetDescriptions) noexcept;
    void takeBuffer(AudioQueueBuffer& buffer, std::uint32_t packetCount,
                    const AudioStreamPacketDescription* packetDescriptions);
    void endFlow() ZAV_EXCLUDES(mutex_);

    AudioStreamBasicDescription dataFormat_;
    std::weak_ptr<RecordSource> owner_;
    std::atomic<std::uint64_t> idleBufferCount_ = 0;

    /// Held while the targets are called, so calls come one after the other. `record` holds it from
    /// the start of the queue until the flow start, so no chunk comes in between. Recursive,
    /// because a target may call `record` or add a target.
    RecursiveMutex targetCalls_;
    StreamTargets targets_ ZAV_GUARDED_BY(targetCalls_);

    Mutex mutex_;  ///< no other code is called while it is held
    std::function<void()> stopCompletion_ ZAV_GUARDED_BY(mutex_);
    bool flowHasEnded_ ZAV_GUARDED_BY(mutex_) = false;

    OwnedAudioQueue queue_;  // last: destroyed before the members that callbacks use
};

RecordSourceImpl::RecordSourceImpl(const AudioStreamBasicDescription& dataFormat)
    : dataFormat_(dataFormat) {
    AudioQueueRef queue = nullptr;
    throwOnQueueFailure(
        AudioQueueNewInput(&dataFormat, onBuffer, this, nullptr, nullptr, 0, &queue));
    queue_.reset(queue);

    // This call gives no room and ignores the status on purpose. A queue that answers anyway
    // completes the format. With any other queue, the format stays as requested.
    std::uint32_t room = 0;
    static_cast<void>(
        AudioQueueGetProperty(queue, kAudioQueueProperty_StreamDescription, &dataFormat_, &room));

    const std::uint32_t size = bufferSize();
    for (std::uint64_t i = 0; i < kQueueBufferCount; ++i) {
        AudioQueueBufferRef buffer = nullptr;
        if (AudioQueueAllocateBuffer(queue, size, &buffer) != noErr) {
            throw AudioQueueError::failure(noErr);  // the status is always 0, on purpose
        }
        // Ignored on purpose: the queue also captures with fewer buffers, but then the flow never
        // ends.
        static_cast<void>(AudioQueueEnqueueBuffer(queue, buffer, 0, nullptr));
    }
}

void RecordSourceImpl::record() {
    const auto owner = owner_.lock();
    printDiagnostics("Start recording");
    // Hold the lock: the first buffer may come back before the targets have received the flow
    // start.
    const MutexLock lock(targetCalls_);
    throwOnQueueFailure(AudioQueueStart(queue(), nullptr));
    targets_.onAudioStreamFlowStart();
}

void RecordSourceImpl::stop(std::function<void()> completion) {
    const auto owner = owner_.lock();
    printDiagnostics("Stop recording");
    throwOnQueueFailure(AudioQueueStop(queue(), true));
    {
        const MutexLock lock(mutex_);
        if (!flowHasEnded_) {
            stopCompletion_.swap(completion);
            return;
        }
    }
    // The flow has already ended. Either the last buffer came back before the completion could be
    // stored, or an earlier stop or a lost device ended the flow.
    if (completion) {
        completion();
    }
}

bool RecordSourceImpl::isRecording() const {
    return requireAudioQueueProperty(queue(), kAudioQueueProperty_IsRunning, "",
                                     kIsRecordingPosition) != 0;
}

std::uint32_t RecordSourceImpl::bufferSize() const {
    std::uint32_t packetSize = dataFormat_.mBytesPerPacket;
    if (packetSize == 0) {
        // Best effort: after a failure the size is 0 and no buffer can be allocated.
        static_cast<void>(readAudioQueueProperty(
            queue(), kAudioQueueProperty_MaximumOutputPacketSize, packetSize));
    }
    return captureBufferSize(dataFormat_, packetSize);
}

void RecordSourceImpl::onBuffer(void* userData, AudioQueueRef /*queue*/, AudioQueueBufferRef buffer,
                                const AudioTimeStamp* /*startTime*/, std::uint32_t packetCount,
                                const AudioStreamPacketDescription* packetDescriptions) noexcept {
    if (userData == nullptr) {
        fatalError(FatalCause::brokenService, "A queue's callback came without its source");
    }
    auto& source = *static_cast<RecordSourceImpl*>(userData);
    // A source that is being destroyed has no owner. The disposal of its queue waits for this call.
    if (const auto owner = source.owner_.lock()) {
        source.takeBuffer(*buffer, packetCount, packetDescriptions);
    }
}

void RecordSourceImpl::takeBuffer(AudioQueueBuffer& buffer, std::uint32_t packetCount,
                                  const AudioStreamPacketDescription* packetDescriptions) {
    if (const std::uint32_t size = buffer.mAudioDataByteSize; size != 0) {
        const std::uint32_t packetNum =
            packetCount != 0 ? packetCount : checkedDivide(size, dataFormat_.mBytesPerPacket);
        const MutexLock lock(targetCalls_);
        targets_.receiveAudio(buffer.mAudioData, size, packetNum, packetDescriptions);
    }
    ++idleBufferCount_;

    if (isRecording()) {
        if (const OSStatus status = AudioQueueEnqueueBuffer(queue(), &buffer, 0, nullptr);
            status != noErr) {
            fatalError(FatalCause::audioQueue, status, "", kEnqueuePosition);
        }
        --idleBufferCount_;
        return;
    }
    printDiagnostics("[RecordSource] recording is not playing");
    if (idleBufferCount_ == kQueueBufferCount) {
        endFlow();
    }
}

void RecordSourceImpl::endFlow() {
    printDiagnostics("[RecordSource] recording is stopped");
    {
        const MutexLock lock(targetCalls_);
        targets_.onAudioStreamFlowEnd();
    }
    std::function<void()> completion;
    {
        const MutexLock lock(mutex_);
        flowHasEnded_ = true;
        completion.swap(stopCompletion_);
    }
    if (completion) {
        completion();
    }
}

RecordSource::RecordSource(NodeKey, const AudioStreamBasicDescription& dataFormat)
    : impl_(std::make_unique<RecordSourceImpl>(dataFormat)) {}

RecordSource::~RecordSource() = default;

void RecordSource::onMade(NodeKey, std::weak_ptr<RecordSource> self) {
    impl_->setOwner(std::move(self));
}

void RecordSource::record() {
    impl_->record();
}

void RecordSource::stop(std::function<void()> completion) {
    impl_->stop(std::move(completion));
}

bool RecordSource::isRecording() const {
    return impl_->isRecording();
}

double RecordSource::timeStamp() const {
    AudioTimeStamp now;
    if (const OSStatus status = AudioQueueGetCurrentTime(audioQueueRef(), nullptr, &now, nullptr);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "", kTimeStampPosition);
    }
    return now.mSampleTime / impl_->dataFormat().mSampleRate;
}

std::vector<std::byte> RecordSource::magicCookie() const {
    std::uint32_t size = 0;
    if (const OSStatus status =
            AudioQueueGetPropertySize(audioQueueRef(), kAudioQueueProperty_MagicCookie, &size);
        status != noErr) {
        fatalError(FatalCause::audioQueue, status, "", kMagicCookiePosition);
    }
    std::vector<std::byte> cookie(size);
    // Best effort: if the queue reports the size but not the bytes, the cookie is all zeros.
    static_cast<void>(AudioQueueGetProperty(audioQueueRef(), kAudioQueueProperty_MagicCookie,
                                            cookie.data(), &size));
    return cookie;
}

std::uint32_t RecordSource::queueBufferSize() const {
    return impl_->bufferSize();
}

std::uint64_t RecordSource::idleQueueBufferCount() const noexcept {
    return impl_->idleBufferCount();
}

AudioQueueRef RecordSource::audioQueueRef() const noexcept {
    return impl_->queue();
}

AudioStreamBasicDescription RecordSource::outDataFormat() const {
    return impl_->dataFormat();
}

const StreamTargets& RecordSource::downstreams() const noexcept {
    return impl_->targets();
}

void RecordSource::addStreamTarget(std::shared_ptr<AudioStreamInputable> target) {
    impl_->addTarget(std::move(target));
}

}  // namespace zav
