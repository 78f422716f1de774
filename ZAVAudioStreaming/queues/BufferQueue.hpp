#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/BufferLedger.hpp"
#include "ZAVAudioStreaming/queues/CallbackRunner.hpp"
#include "ZAVAudioStreaming/queues/QueueRun.hpp"
#include "ZAVAudioStreaming/queues/QueueSide.hpp"
#include "ZAVAudioStreaming/support/Mutex.hpp"

namespace zav::detail {

/// An audio queue. It combines the run from start to stop (`QueueRun`), the buffers
/// (`BufferLedger`), their audio (`QueueSide`) and the thread of the callbacks (`CallbackRunner`).
///
/// It has two locks, taken in this order. No callback runs under either lock. The device thread
/// takes neither lock:
/// - `control_`: allows one start, pause, stop or end of a stop at a time. It is held during waits
///   for the device.
/// - the mutex of the side: guards everything else.
///
/// Threads: any. `deliver` runs where the queue's callbacks run.
class BufferQueue : public std::enable_shared_from_this<BufferQueue> {
 public:
    /// The application's callback. Must not throw.
    using Callback = std::function<void(AudioQueueRef handle, const BufferLedger::Entry& entry)>;
    /// Makes the runner that calls `deliver`.
    using RunnerMaker =
        std::function<std::shared_ptr<CallbackRunner>(std::function<void()> deliver)>;

    /// `handle` is deleted when the queue has been disposed of. Throws what the makers throw.
    static std::shared_ptr<BufferQueue> make(AudioQueueRef handle, Callback callback,
                                             const QueueSideMaker& makeSide,
                                             const RunnerMaker& makeRunner);

    BufferQueue(AudioQueueRef handle, Callback callback, const QueueSideMaker& makeSide);

    BufferQueue(const BufferQueue&) = delete;
    BufferQueue& operator=(const BufferQueue&) = delete;

    OSStatus allocate(std::uint32_t byteCount, AudioQueueBufferRef& buffer);
    OSStatus enqueue(AudioQueueBufferRef buffer,
                     std::span<const AudioStreamPacketDescription> descriptions);
    OSStatus start();
    OSStatus pause();
    OSStatus stop(bool isImmediate);
    /// With `isImmediate`, no callback runs after this returns, except a callback that called it.
    OSStatus dispose(bool isImmediate);

    /// Takes no lock: nodes call it in every callback.
    bool isRunning() const ZAV_NO_THREAD_SAFETY_ANALYSIS { return run_.isRunning(); }
    /// Returns true if every wake-up of the callbacks has been answered.
    bool isIdle() const { return runner_->isIdle(); }
    double currentFrame();
    /// Returns the value of a property as bytes. If `roomInBytes` is too small for the level, the
    /// caller only wants its size. The peak is then kept for the next caller. Throws StatusFailure.
    std::vector<std::byte> property(AudioQueuePropertyID property, std::size_t roomInBytes);
    /// Throws StatusFailure.
    void setMagicCookie(std::span<const std::byte> cookie);

 private:
    void wake() const noexcept { runner_->wake(); }

    OSStatus startUnlessOver() ZAV_REQUIRES(control_);
    OSStatus resume() ZAV_REQUIRES(control_);
    OSStatus stopOrPlayOut(bool isImmediate) ZAV_REQUIRES(control_);
    OSStatus disposeNow();
    void finishRunIfOver() ZAV_REQUIRES(control_);
    void stopNow() ZAV_REQUIRES(control_);
    bool isRunOver() const ZAV_REQUIRES(side_->mutex);
    void noteStopIsKnown();

    void deliver();
    bool takeNext(BufferLedger::Entry& next);

    AudioQueueRef handle_;  // deleted after the last callback that can use it
    const Callback callback_;
    std::shared_ptr<CallbackRunner> runner_;  // set once, before the queue is handed out

    Mutex control_;
    const std::unique_ptr<QueueSide> side_;
    QueueRun run_ ZAV_GUARDED_BY(side_->mutex);
    /// Number of stops that the running callback knows. A callback that began before the last stop
    /// may enqueue its buffer again without knowing of that stop. Such a buffer comes back at once.
    std::uint64_t stopCountAtCallback_ ZAV_GUARDED_BY(side_->mutex) = 0;
};

}  // namespace zav::detail

/// The object behind a handle.
struct zav::OpaqueAudioQueue {
    std::shared_ptr<zav::detail::BufferQueue> queue;
};
