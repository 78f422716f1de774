#pragma once

#include <atomic>
#include <chrono>

namespace zavtool {

/// Lets the main thread of a live verb sleep until it has work. All members are static, because a
/// signal handler can reach only static members.
class MainThread {
 public:
    using Clock = std::chrono::steady_clock;

    /// After this call, SIGINT, SIGTERM and SIGHUP wake the main thread instead of ending the
    /// process. The same signal ends the process when it arrives a second time.
    static void catchSignals();

    /// Ends the current sleep. If the main thread is awake, ends its next sleep. Call from any
    /// thread and from a signal handler.
    static void wake() noexcept;
    /// Sleeps until `time` or until `wake`.
    static void sleepUntil(Clock::time_point time) noexcept;

    /// The signal that has arrived, or 0.
    static int endingSignal() noexcept { return endingSignal_; }
    /// Ends the process by the signal that has arrived, so that the parent process sees the reason.
    [[noreturn]] static void endBySignal();

 private:
    static void takeSignal(int signal);

    static std::atomic<int> endingSignal_;
};

}  // namespace zavtool
