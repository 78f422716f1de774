#pragma once

#include <atomic>
#include <chrono>

namespace zavtool {

/// The sleep of the main thread in a live verb, until there is something to do. There is one for
/// the process, because a signal handler can reach nothing else.
class MainThread {
 public:
    using Clock = std::chrono::steady_clock;

    /// From here on SIGINT, SIGTERM and SIGHUP wake the main thread instead of ending the process.
    /// The same signal a second time ends the process.
    static void catchSignals();

    /// Ends the present sleep or, if there is none, the next one. Call from any thread and from a
    /// signal handler.
    static void wake() noexcept;
    /// Sleeps until `time` or until `wake`.
    static void sleepUntil(Clock::time_point time) noexcept;

    /// The signal that has come, or 0.
    static int endingSignal() noexcept { return endingSignal_; }
    /// Ends the process by the signal that has come, so that its parent sees the reason.
    [[noreturn]] static void endBySignal();

 private:
    static void takeSignal(int signal);

    static std::atomic<int> endingSignal_;
};

}  // namespace zavtool
