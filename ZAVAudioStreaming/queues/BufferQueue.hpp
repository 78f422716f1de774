#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <unordered_map>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/CallbackRunner.hpp"

namespace zav::detail {

/// What input and output queues have in common: their buffers, the way back through the callback,
/// and the run from start to stop. What a buffer's audio does in between is the derived class's.
///
/// Two locks, taken in this order; no callback is called under either, and the device thread takes
/// neither:
/// - `control`: one start, pause, stop or end of a stop at a time. Held while waiting for the
///   device.
/// - `state`: everything else. Held for as long as it takes to copy or encode a buffer.
///
/// Threads: any. `deliver` runs where the queue's callbacks run.
class BufferQueue : public std::enable_shared_from_this<BufferQueue> {
 public:
    explicit BufferQueue(AudioQueueRef handle);
    virtual ~BufferQueue();

    BufferQueue(const BufferQueue&) = delete;
    BufferQueue& operator=(const BufferQueue&) = delete;

    OSStatus allocate(std::uint32_t byteCount, AudioQueueBufferRef& buffer);
    OSStatus enqueue(AudioQueueBufferRef buffer,
                     std::span<const AudioStreamPacketDescription> descriptions);
    OSStatus start();
    OSStatus pause();
    OSStatus stop(bool isImmediate);
    /// With `isImmediate`, no callback runs after this, but for one that calls it.
    OSStatus end(bool isImmediate);

    bool isRunning() const { return isRunning_; }
    /// Whether nothing is under way to the callback.
    bool isIdle() const { return runner_->isIdle(); }
    virtual double currentFrame() = 0;
    virtual std::uint32_t interruptionCount() = 0;
    virtual AudioQueueLevel takeLevel() = 0;
    /// Throws kAudioQueueErr_InvalidProperty for an input queue.
    virtual bool lastRunWasPlayedOut() = 0;
    virtual AudioStreamBasicDescription streamFormat() = 0;
    virtual std::uint32_t maximumPacketSize() = 0;
    virtual std::vector<std::byte> magicCookie() = 0;
    virtual OSStatus setMagicCookie(std::span<const std::byte> cookie) = 0;

 protected:
    /// A buffer on its way, and what the callback is told of it.
    struct Entry {
        AudioQueueBufferRef buffer = nullptr;
        std::uint64_t endFrame = 0;  ///< output: played when this many frames of the run are
        AudioTimeStamp startTime;    ///< input: of its first frame
        std::vector<AudioStreamPacketDescription> descriptions;  ///< input
    };

    /// Before any other call.
    void setRunner(std::shared_ptr<CallbackRunner> runner) { runner_ = std::move(runner); }
    /// What the runner of a queue calls.
    static std::function<void()> deliveryTo(const std::shared_ptr<BufferQueue>& queue);
    void wake() const noexcept { runner_->wake(); }

    std::mutex& state() { return state_; }
    std::deque<Entry>& enqueued() { return enqueued_; }
    const std::deque<Entry>& enqueued() const { return enqueued_; }
    /// Moves the oldest enqueued buffer to those that go back. State lock held.
    void giveBackFirst();
    bool isStopping() const { return isStopping_; }

    // The derived class's part. Control lock held, state lock not:
    virtual OSStatus openDevice() = 0;
    virtual OSStatus resumeDevice() = 0;
    /// A device that goes away while it is paused is still noticed.
    virtual OSStatus pauseDevice() = 0;
    virtual void closeDevice() = 0;

    // State lock held:
    /// Whether a buffer can be enqueued with these descriptions. Then one to be filled is emptied,
    /// and an output queue has not played all any more, even if the buffer comes too late.
    virtual OSStatus prepare(AudioQueueBuffer& buffer,
                             std::span<const AudioStreamPacketDescription> descriptions) = 0;
    /// `entry` is the last of `enqueued`, and leaves it again if this throws.
    virtual void accept(Entry& entry,
                        std::span<const AudioStreamPacketDescription> descriptions) = 0;
    /// Gives back the buffers that the device is done with; of a stop the last one waits until the
    /// queue is not running any more.
    virtual void collect() = 0;
    /// The device is closed: fills what is to be filled and forgets the run's audio.
    virtual void endRun() = 0;
    /// Nothing more has to be played than what is enqueued, or is before that has been; true when
    /// nothing has to.
    virtual bool beginEnding() = 0;
    virtual void callOffEnding() = 0;
    virtual bool isPlayedOut() const = 0;
    virtual bool isDeviceGone() const = 0;

    virtual void callBack(AudioQueueRef handle, const Entry& entry) = 0;

 private:
    struct Memory;

    void add(const Entry& entry, std::span<const AudioStreamPacketDescription> descriptions);
    OSStatus startOrResume();
    OSStatus resume();
    OSStatus stopOrBeginTo(bool isImmediate);
    void noteStopIsKnown();
    bool isRunOver() const;
    bool isBeingDisposedOf() const;
    void finishRunIfOver();
    void stopNow();
    void giveBackAll();
    void deliver();
    bool takeNext(Entry& next);

    AudioQueueRef handle_;
    std::shared_ptr<CallbackRunner> runner_;

    std::mutex control_;
    bool isPaused_ = false;  // guarded by control

    std::mutex state_;
    std::unordered_map<AudioQueueBufferRef, std::unique_ptr<Memory>> buffers_;
    std::deque<Entry> enqueued_;
    std::deque<Entry> givenBack_;
    bool isStopping_ = false;
    bool isEnded_ = false;
    bool endsAfterStop_ = false;
    // A callback that began before the last stop may enqueue its buffer again without knowing of
    // it: that buffer comes back at once.
    std::uint64_t stopCount_ = 0;
    std::uint64_t stopCountAtCallback_ = 0;

    std::atomic<bool> isRunning_{false};
};

}  // namespace zav::detail

/// What a handle points to.
struct zav::OpaqueAudioQueue {
    std::shared_ptr<zav::detail::BufferQueue> queue;
};
