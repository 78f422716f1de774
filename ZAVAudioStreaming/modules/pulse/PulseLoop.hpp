#pragma once

#include <pulse/pulseaudio.h>

#include "ZAVAudioStreaming/support/Mutex.hpp"

namespace zav::detail {

/// The device thread: libpulse's main loop. One loop serves all connections of the process, for two
/// reasons. libpulse recycles memory between loops, and ThreadSanitizer cannot see that. No call on
/// the loop takes long. The loop is also a lock: hold a `PulseLock` to use any of its objects.
/// libpulse already holds the lock inside its callbacks.
///
/// Threads: any but the device thread.
class ZAV_CAPABILITY("mutex") PulseLoop {
 public:
    /// Starts the loop for its first user. Throws std::bad_alloc if no thread can be started.
    PulseLoop();
    /// The last user's destructor ends the thread. The caller must not hold the lock.
    ~PulseLoop();
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    pa_threaded_mainloop* get() const { return loop_; }

 private:
    pa_threaded_mainloop* loop_;
};

/// Holds the lock of a loop. A thread that holds the lock may take it again.
class ZAV_SCOPED_CAPABILITY PulseLock {
 public:
    explicit PulseLock(const PulseLoop& loop) ZAV_ACQUIRE(loop) : loop_(loop.get()) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~PulseLock() ZAV_RELEASE() { pa_threaded_mainloop_unlock(loop_); }
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

 private:
    pa_threaded_mainloop* const loop_;
};

}  // namespace zav::detail
