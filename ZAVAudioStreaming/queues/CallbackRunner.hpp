#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "ZAVAudioStreaming/platform/DispatchQueue.hpp"

namespace zav::detail {

/// Runs the callbacks of one queue. It calls `deliver` after each `wake`. Calls of `deliver` never
/// overlap. `deliver` never runs inside `wake`.
///
/// Threads: any.
class CallbackRunner {
 public:
    virtual ~CallbackRunner() = default;

    CallbackRunner(const CallbackRunner&) = delete;
    CallbackRunner& operator=(const CallbackRunner&) = delete;

    /// Makes the runner call `deliver` once more, soon. Takes no lock and allocates nothing,
    /// because the device thread calls it too.
    virtual void wake() noexcept = 0;

    /// Returns true if the caller is inside `deliver`.
    bool isCurrentThread() const noexcept { return runningThread_ == std::this_thread::get_id(); }

    /// Returns true if every wake-up so far has been answered.
    bool isIdle() const noexcept { return answeredWakeUps_ == wakeUps_; }

    /// No call of `deliver` runs after this returns, except a call that called `end` itself.
    virtual void end() = 0;

 protected:
    explicit CallbackRunner(std::function<void()> deliver) : deliver_(std::move(deliver)) {}

    void noteWakeUp() noexcept { ++wakeUps_; }
    void answerWakeUps() {
        const std::uint64_t answered = wakeUps_;
        runningThread_ = std::this_thread::get_id();
        deliver_();
        runningThread_ = std::thread::id();
        answeredWakeUps_ = answered;
    }

 private:
    std::function<void()> deliver_;
    std::atomic<std::uint64_t> wakeUps_{0};
    std::atomic<std::uint64_t> answeredWakeUps_{0};
    std::atomic<std::thread::id> runningThread_;
};

/// Starts a thread and runs callbacks on it.
std::shared_ptr<CallbackRunner> makeThreadRunner(std::function<void()> deliver);

/// Runs callbacks on `queue`, which must outlive the runner.
std::shared_ptr<CallbackRunner> makeDispatchRunner(DispatchQueue& queue,
                                                   std::function<void()> deliver);

}  // namespace zav::detail
