#pragma once

#include <atomic>
#include <cstdint>

namespace zav::detail {

/// The run of a queue, from its start to the end of its stop, as a state machine. It keeps the
/// state and decides the action for each call. `BufferQueue` performs the action and reports back.
///
///     stopped  -- start -->             running
///     running  -- pause -->             paused      -- start --> running
///     running  -- asynchronous stop --> stopping    -- start --> running (the stop is called off)
///     paused   -- asynchronous stop --> paused and stopping
///     any      -- immediate stop, played out, device lost --> stopped
///
/// Threads: one at a time, but `isRunning` may be called at the same time as any other function.
class QueueRun {
 public:
    enum class StartAction { refuse, open, resume, callOffStop, nothing };
    enum class PauseAction { refuse, pause, nothing };

    StartAction startAction() const;
    PauseAction pauseAction(bool hasEnqueued) const;

    /// True from a successful start to the end of the stop. A paused queue is running too.
    bool isRunning() const { return isRunning_; }
    bool isPaused() const { return isPaused_; }
    /// True while an asynchronous stop waits for the last frame.
    bool isStopping() const { return isStopping_; }
    /// If true, buffers cannot be allocated or enqueued, and no call starts, pauses or stops the
    /// queue.
    bool isBeingDisposedOf() const { return disposal_ != Disposal::none; }
    bool isDisposedOf() const { return disposal_ == Disposal::done; }
    /// True if a disposal was waiting for the end of the run and the run has ended.
    bool isDisposalDue() const { return disposal_ == Disposal::afterStop && !isRunning(); }
    /// Whether a running queue has to stop by itself: its device is gone, or an asynchronous stop
    /// has nothing left to play.
    bool isOver(bool isDeviceGone, bool isPlayedOut) const {
        return isRunning() && (isDeviceGone || (isStopping_ && isPlayedOut));
    }
    /// Number of times that the queue has stopped.
    std::uint64_t stopCount() const { return stopCount_; }

    void noteStarted() { isRunning_ = true; }
    void noteResumed() { isPaused_ = false; }
    void notePaused() { isPaused_ = true; }
    void noteStopping() { isStopping_ = true; }
    void noteStopCalledOff() { isStopping_ = false; }
    void noteStopped();
    void noteDisposalAfterStop() { disposal_ = Disposal::afterStop; }
    void noteDisposed();

 private:
    enum class Disposal { none, afterStop, done };

    std::atomic<bool> isRunning_{false};  // read at any time without the lock
    bool isPaused_ = false;
    bool isStopping_ = false;
    Disposal disposal_ = Disposal::none;
    std::uint64_t stopCount_ = 0;
};

}  // namespace zav::detail
