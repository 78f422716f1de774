#include "ZAVAudioStreaming/queues/BufferQueue.hpp"

#include <utility>

#include "ZAVAudioStreaming/support/OutOfMemory.hpp"

namespace zav::detail {

struct BufferQueue::Memory {
    explicit Memory(std::uint32_t byteCount)
        : bytes(std::make_unique_for_overwrite<std::byte[]>(byteCount)),
          buffer{byteCount, bytes.get()} {}

    std::unique_ptr<std::byte[]> bytes;
    AudioQueueBuffer buffer;
    bool isInQueue = false;
};

BufferQueue::BufferQueue(AudioQueueRef handle) : handle_(handle) {}

BufferQueue::~BufferQueue() = default;

OSStatus BufferQueue::allocate(std::uint32_t byteCount, AudioQueueBufferRef& buffer) {
    auto memory = std::make_unique<Memory>(byteCount);
    const std::lock_guard lock(state_);
    if (isBeingDisposedOf()) {
        return kAudioQueueErr_DisposalPending;
    }
    auto* const made = &memory->buffer;
    buffers_.emplace(made, std::move(memory));
    buffer = made;
    return noErr;
}

OSStatus BufferQueue::enqueue(AudioQueueBufferRef buffer,
                              std::span<const AudioStreamPacketDescription> descriptions) {
    const std::lock_guard lock(state_);
    if (isBeingDisposedOf()) {
        return kAudioQueueErr_DisposalPending;
    }
    const auto memory = buffers_.find(buffer);
    if (memory == buffers_.end() || buffer->mAudioDataByteSize > buffer->mAudioDataBytesCapacity) {
        return kAudioQueueErr_InvalidBuffer;
    }
    if (memory->second->isInQueue) {
        return kAudioQueueErr_BufferInQueue;
    }
    if (const OSStatus status = prepare(*buffer, descriptions); status != noErr) {
        return status;
    }
    Entry entry;
    entry.buffer = buffer;
    const bool comesTooLate = runner_->isCurrentThread() && stopCountAtCallback_ != stopCount_;
    if (comesTooLate) {
        givenBack_.push_back(std::move(entry));
        wake();
    } else {
        add(entry, descriptions);
    }
    memory->second->isInQueue = true;
    return noErr;
}

/// State lock held.
bool BufferQueue::isBeingDisposedOf() const {
    return isEnded_ || endsAfterStop_;
}

/// State lock held.
void BufferQueue::add(const Entry& entry,
                      std::span<const AudioStreamPacketDescription> descriptions) {
    enqueued_.push_back(entry);
    try {
        accept(enqueued_.back(), descriptions);
    } catch (...) {
        enqueued_.pop_back();
        throw;
    }
}

OSStatus BufferQueue::start() {
    const std::lock_guard control(control_);
    const OSStatus status = startOrResume();
    if (status == noErr) {
        noteStopIsKnown();
    }
    return status;
}

/// Control lock held.
OSStatus BufferQueue::startOrResume() {
    finishRunIfOver();
    {
        const std::lock_guard lock(state_);
        if (isBeingDisposedOf()) {
            return kAudioQueueErr_DisposalPending;
        }
        if (isRunning_ && !isPaused_) {
            if (std::exchange(isStopping_, false)) {
                callOffEnding();
            }
            return noErr;
        }
    }
    if (isRunning_) {
        return resume();
    }
    if (const OSStatus status = openDevice(); status != noErr) {
        return status;
    }
    isRunning_ = true;
    wake();
    return noErr;
}

/// Control lock held.
OSStatus BufferQueue::resume() {
    if (const OSStatus status = resumeDevice(); status != noErr) {
        return status;
    }
    isPaused_ = false;
    wake();
    return noErr;
}

OSStatus BufferQueue::pause() {
    const std::lock_guard control(control_);
    finishRunIfOver();
    {
        const std::lock_guard lock(state_);
        if (isBeingDisposedOf()) {
            return kAudioQueueErr_DisposalPending;
        }
        if (isStopping_ && enqueued_.empty()) {
            return noErr;  // nobody would go on for what a decoder still holds
        }
    }
    if (!isRunning_ || isPaused_) {
        return noErr;
    }
    if (const OSStatus status = pauseDevice(); status != noErr) {
        return status;
    }
    isPaused_ = true;
    wake();
    return noErr;
}

OSStatus BufferQueue::stop(bool isImmediate) {
    const std::lock_guard control(control_);
    return stopOrBeginTo(isImmediate);
}

/// Control lock held.
OSStatus BufferQueue::stopOrBeginTo(bool isImmediate) {
    bool isEmpty = false;
    {
        const std::lock_guard lock(state_);
        if (isBeingDisposedOf()) {
            return kAudioQueueErr_DisposalPending;
        }
        isImmediate = isImmediate || !isRunning_ || isDeviceGone() || beginEnding();
        isStopping_ = isStopping_ || !isImmediate;
        isEmpty = enqueued_.empty();
    }
    if (isImmediate) {
        stopNow();
        noteStopIsKnown();
        return noErr;
    }
    wake();
    // The application has got all its buffers back, and takes what is left for played: it would
    // not go on for that.
    if (isPaused_ && isEmpty) {
        static_cast<void>(resume());  // fails when the device is gone, and that ends the run
    }
    return noErr;
}

OSStatus BufferQueue::end(bool isImmediate) {
    if (!isImmediate) {
        const std::lock_guard control(control_);
        // Nobody can have a paused queue go on any more.
        if (const OSStatus status = stopOrBeginTo(isPaused_); status != noErr) {
            return status;
        }
        const std::lock_guard lock(state_);
        endsAfterStop_ = true;
        wake();
        return noErr;
    }
    {
        const std::lock_guard control(control_);
        {
            const std::lock_guard lock(state_);
            if (std::exchange(isEnded_, true)) {
                return kAudioQueueErr_DisposalPending;
            }
        }
        isRunning_ = false;
        closeDevice();
    }
    runner_->end();
    delete std::exchange(handle_, nullptr);
    return noErr;
}

/// A callback that has stopped or started the queue itself knows how things are.
void BufferQueue::noteStopIsKnown() {
    const std::lock_guard lock(state_);
    if (runner_->isCurrentThread()) {
        stopCountAtCallback_ = stopCount_;
    }
}

void BufferQueue::giveBackFirst() {
    givenBack_.push_back(std::move(enqueued_.front()));
    enqueued_.pop_front();
}

std::function<void()> BufferQueue::deliveryTo(const std::shared_ptr<BufferQueue>& queue) {
    return [weak = std::weak_ptr(queue)] {
        if (const auto alive = weak.lock()) {
            alive->deliver();
        }
    };
}

void BufferQueue::deliver() {
    fatalWithoutMemory([this] {
        for (Entry next; takeNext(next); next = Entry()) {
            callBack(handle_, next);
        }
    });
}

/// False when no buffer waits to be called back.
bool BufferQueue::takeNext(Entry& next) {
    std::unique_lock lock(state_);
    while (!isEnded_ && isRunning_) {
        collect();
        if (!isRunOver()) {
            break;
        }
        lock.unlock();
        {
            const std::lock_guard control(control_);
            finishRunIfOver();
        }
        lock.lock();
    }
    if (isEnded_) {
        return false;
    }
    if (givenBack_.empty()) {
        const bool isLast = endsAfterStop_ && !isRunning_;
        lock.unlock();
        if (isLast) {
            end(true);
        }
        return false;
    }
    next = std::move(givenBack_.front());
    givenBack_.pop_front();
    buffers_.at(next.buffer)->isInQueue = false;
    stopCountAtCallback_ = stopCount_;
    return true;
}

/// State lock held.
bool BufferQueue::isRunOver() const {
    return isRunning_ && (isDeviceGone() || (isStopping_ && isPlayedOut()));
}

/// Control lock held.
void BufferQueue::finishRunIfOver() {
    bool isOver = false;
    {
        const std::lock_guard lock(state_);
        isOver = isRunOver();
    }
    if (isOver) {
        stopNow();
    }
}

/// Control lock held.
void BufferQueue::stopNow() {
    closeDevice();
    isPaused_ = false;
    const std::lock_guard lock(state_);
    // Only now, and with what follows: a buffer that somebody enqueues because the queue does not
    // run any more belongs to the next run.
    isRunning_ = false;
    isStopping_ = false;
    ++stopCount_;
    try {
        endRun();
    } catch (...) {
        giveBackAll();
        throw;
    }
    giveBackAll();
}

/// State lock held.
void BufferQueue::giveBackAll() {
    while (!enqueued_.empty()) {
        giveBackFirst();
    }
    wake();
}

}  // namespace zav::detail
