#include "ZAVAudioStreaming/queues/BufferQueue.hpp"

#include <utility>

#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav::detail {
namespace {

template <class Value>
std::vector<std::byte> bytesOf(const Value& value) {
    const auto bytes = std::as_bytes(std::span(&value, 1));
    return {bytes.begin(), bytes.end()};
}

}  // namespace

std::shared_ptr<BufferQueue> BufferQueue::make(AudioQueueRef handle, Callback callback,
                                               const QueueSideMaker& makeSide,
                                               const RunnerMaker& makeRunner) {
    auto queue = std::make_shared<BufferQueue>(handle, std::move(callback), makeSide);
    queue->runner_ = makeRunner([weak = std::weak_ptr(queue)] {
        if (const auto alive = weak.lock()) {
            alive->deliver();
        }
    });
    return queue;
}

BufferQueue::BufferQueue(AudioQueueRef handle, Callback callback, const QueueSideMaker& makeSide)
    : handle_(handle), callback_(std::move(callback)), side_(makeSide([this] { wake(); })) {}

OSStatus BufferQueue::allocate(std::uint32_t byteCount, AudioQueueBufferRef& buffer) {
    auto memory = std::make_unique<BufferLedger::Memory>(byteCount);
    const MutexLock lock(side_->mutex);
    if (run_.isBeingDisposedOf()) {
        return kAudioQueueErr_DisposalPending;
    }
    buffer = side_->buffers.add(std::move(memory));
    return noErr;
}

OSStatus BufferQueue::enqueue(AudioQueueBufferRef buffer,
                              std::span<const AudioStreamPacketDescription> descriptions) {
    const MutexLock lock(side_->mutex);
    if (run_.isBeingDisposedOf()) {
        return kAudioQueueErr_DisposalPending;
    }
    if (const OSStatus status = side_->buffers.check(buffer); status != noErr) {
        return status;
    }
    if (const OSStatus status = side_->prepare(*buffer, descriptions); status != noErr) {
        return status;
    }
    const bool comesTooLate =
        runner_->isCurrentThread() && stopCountAtCallback_ != run_.stopCount();
    if (comesTooLate) {
        side_->buffers.returnAtOnce(buffer);
        wake();
        return noErr;
    }
    BufferLedger::Entry& entry = side_->buffers.enqueue(buffer);
    try {
        side_->accept(entry, descriptions);
    } catch (...) {
        side_->buffers.removeLast();
        throw;
    }
    return noErr;
}

OSStatus BufferQueue::start() {
    const MutexLock control(control_);
    const OSStatus status = startUnlessOver();
    if (status == noErr) {
        noteStopIsKnown();
    }
    return status;
}

OSStatus BufferQueue::startUnlessOver() {
    finishRunIfOver();
    auto action = QueueRun::StartAction::nothing;
    {
        const MutexLock lock(side_->mutex);
        action = run_.startAction();
        if (action == QueueRun::StartAction::callOffStop) {
            run_.noteStopCalledOff();
            side_->callOffPlayingOut();
        }
    }
    switch (action) {
        case QueueRun::StartAction::refuse:
            return kAudioQueueErr_DisposalPending;
        case QueueRun::StartAction::resume:
            return resume();
        case QueueRun::StartAction::open:
            break;
        default:
            return noErr;
    }
    if (const OSStatus status = side_->openDevice(); status != noErr) {
        return status;
    }
    {
        const MutexLock lock(side_->mutex);
        run_.noteStarted();
    }
    wake();
    return noErr;
}

OSStatus BufferQueue::resume() {
    if (const OSStatus status = side_->resumeDevice(); status != noErr) {
        return status;
    }
    {
        const MutexLock lock(side_->mutex);
        run_.noteResumed();
    }
    wake();
    return noErr;
}

OSStatus BufferQueue::pause() {
    const MutexLock control(control_);
    finishRunIfOver();
    auto action = QueueRun::PauseAction::nothing;
    {
        const MutexLock lock(side_->mutex);
        action = run_.pauseAction(side_->buffers.hasEnqueued());
    }
    if (action == QueueRun::PauseAction::refuse) {
        return kAudioQueueErr_DisposalPending;
    }
    if (action == QueueRun::PauseAction::nothing) {
        return noErr;
    }
    if (const OSStatus status = side_->pauseDevice(); status != noErr) {
        return status;
    }
    {
        const MutexLock lock(side_->mutex);
        run_.notePaused();
    }
    wake();
    return noErr;
}

OSStatus BufferQueue::stop(bool isImmediate) {
    const MutexLock control(control_);
    return stopOrPlayOut(isImmediate);
}

OSStatus BufferQueue::stopOrPlayOut(bool isImmediate) {
    bool hasOnlyTheRest = false;
    {
        const MutexLock lock(side_->mutex);
        if (run_.isBeingDisposedOf()) {
            return kAudioQueueErr_DisposalPending;
        }
        isImmediate =
            isImmediate || !run_.isRunning() || side_->isDeviceGone() || side_->beginPlayingOut();
        if (!isImmediate) {
            run_.noteStopping();
        }
        hasOnlyTheRest = run_.isPaused() && !side_->buffers.hasEnqueued();
    }
    if (isImmediate) {
        stopNow();
        noteStopIsKnown();
        return noErr;
    }
    wake();
    // The application has all its buffers back, so it would not resume the queue. Play the audio
    // that the decoder still held now.
    if (hasOnlyTheRest) {
        static_cast<void>(resume());  // fails if the device is gone; the run then ends
    }
    return noErr;
}

OSStatus BufferQueue::dispose(bool isImmediate) {
    if (isImmediate) {
        return disposeNow();
    }
    const MutexLock control(control_);
    bool isPaused = false;
    {
        const MutexLock lock(side_->mutex);
        isPaused = run_.isPaused();
    }
    // A paused queue cannot be resumed any more, so it does not play out.
    if (const OSStatus status = stopOrPlayOut(isPaused); status != noErr) {
        return status;
    }
    {
        const MutexLock lock(side_->mutex);
        run_.noteDisposalAfterStop();
    }
    wake();
    return noErr;
}

OSStatus BufferQueue::disposeNow() {
    {
        const MutexLock control(control_);
        {
            const MutexLock lock(side_->mutex);
            if (run_.isDisposedOf()) {
                return kAudioQueueErr_DisposalPending;
            }
            run_.noteDisposed();
        }
        side_->closeDevice();
    }
    runner_->end();
    delete std::exchange(handle_, nullptr);
    return noErr;
}

/// A callback that has stopped or started the queue itself knows every stop until now.
void BufferQueue::noteStopIsKnown() {
    const MutexLock lock(side_->mutex);
    if (runner_->isCurrentThread()) {
        stopCountAtCallback_ = run_.stopCount();
    }
}

double BufferQueue::currentFrame() {
    const MutexLock lock(side_->mutex);
    return side_->currentFrame();
}

std::vector<std::byte> BufferQueue::property(AudioQueuePropertyID property,
                                             std::size_t roomInBytes) {
    // Meters and nodes read these properties often. Read them without the lock, which a decoder may
    // hold.
    switch (property) {
        case kAudioQueueProperty_IsRunning:
            return bytesOf(std::uint32_t{isRunning()});
        case kAudioQueueProperty_InterruptionCount:
            return bytesOf(side_->interruptionCount());
        case kAudioQueueProperty_Level:
            return bytesOf(roomInBytes < sizeof(AudioQueueLevel) ? AudioQueueLevel()
                                                                 : side_->takeLevel());
        default:
            break;
    }
    const MutexLock lock(side_->mutex);
    switch (property) {
        case kAudioQueueProperty_MaximumOutputPacketSize:
            return bytesOf(side_->maximumPacketSize());
        case kAudioQueueProperty_StreamDescription:
            return bytesOf(side_->streamFormat());
        case kAudioQueueProperty_MagicCookie:
            return side_->magicCookie();
        case kAudioQueueProperty_HasPlayedAll:
            return bytesOf(std::uint32_t{side_->lastRunWasPlayedOut()});
        default:
            throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }
}

void BufferQueue::setMagicCookie(std::span<const std::byte> cookie) {
    const MutexLock lock(side_->mutex);
    side_->setMagicCookie(cookie);
}

void BufferQueue::deliver() {
    fatalWithoutMemory([this] {
        for (BufferLedger::Entry next; takeNext(next); next = {}) {
            callback_(handle_, next);
        }
    });
}

/// Returns false if no buffer waits for its callback.
bool BufferQueue::takeNext(BufferLedger::Entry& next) {
    MutexLock lock(side_->mutex);
    while (!run_.isDisposedOf() && run_.isRunning()) {
        side_->collect();
        if (!isRunOver()) {
            break;
        }
        lock.unlock();
        {
            const MutexLock control(control_);
            finishRunIfOver();
        }
        lock.lock();
    }
    if (run_.isDisposedOf()) {
        return false;
    }
    if (side_->buffers.takeGivenBack(next)) {
        stopCountAtCallback_ = run_.stopCount();
        return true;
    }
    const bool isDisposalDue = run_.isDisposalDue();
    lock.unlock();
    if (isDisposalDue) {
        disposeNow();
    }
    return false;
}

bool BufferQueue::isRunOver() const {
    return run_.isOver(side_->isDeviceGone(), side_->isPlayedOut());
}

void BufferQueue::finishRunIfOver() {
    bool isOver = false;
    {
        const MutexLock lock(side_->mutex);
        isOver = isRunOver();
    }
    if (isOver) {
        stopNow();
    }
}

void BufferQueue::stopNow() {
    side_->closeDevice();
    const MutexLock lock(side_->mutex);
    // Note the stop and give the buffers back under one lock. The application may enqueue a buffer
    // because it sees that the queue has stopped. That buffer belongs to the next run.
    run_.noteStopped();
    try {
        side_->endRun();
    } catch (...) {
        side_->buffers.giveBackAll();
        wake();
        throw;
    }
    side_->buffers.giveBackAll();
    wake();
}

}  // namespace zav::detail
