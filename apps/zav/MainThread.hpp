#pragma once

#include <atomic>
#include <chrono>

namespace zavtool {

/// Where the main thread of a live verb sleeps until there is something to do. One for the process:
/// a signal handler has no other way to it.
class MainThread {
 public:
    using Clock = std::chrono::steady_clock;

    /// From here on the signals that ask for an end wake the main thread instead of ending the
    /// process. The same signal a second time ends it all the same.
    static void catchSignals();

    /// Ends the sleep, or the next one. Safe on any thread and in a signal handler.
    static void wake() noexcept;
    /// Sleeps until then, or until it is woken.
    static void sleepUntil(Clock::time_point time) noexcept;

    /// The signal that asked for an end; 0 when none did.
    static int endingSignal() noexcept { return endingSignal_; }
    /// Ends the process as the signal would have: whoever waits for it learns the reason.
    [[noreturn]] static void endBySignal();

 private:
    static void takeSignal(int signal);

    static std::atomic<int> endingSignal_;
};

}  // namespace zavtool
