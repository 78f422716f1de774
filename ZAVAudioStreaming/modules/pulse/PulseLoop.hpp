#pragma once

#include <pulse/pulseaudio.h>

namespace zav::detail {

/// The device thread: libpulse's main loop, which serves all connections of the process while there
/// are any. One for all, because libpulse recycles memory between its loops behind
/// ThreadSanitizer's back, and because nothing that runs on it takes long.
///
/// Threads: any but the device thread.
class PulseLoop {
 public:
    /// Starts it if nobody has it yet. What goes with it needs the lock, which libpulse holds
    /// whenever it calls us. Throws std::bad_alloc when there can be no thread.
    PulseLoop();
    /// Ends the thread if nobody else has it. The lock is free.
    ~PulseLoop();
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    pa_threaded_mainloop* get() const { return loop_; }

 private:
    pa_threaded_mainloop* loop_;
};

/// Holds the lock; a thread that has it already may do so again.
class PulseLock {
 public:
    explicit PulseLock(const PulseLoop& loop) : loop_(loop.get()) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~PulseLock() { pa_threaded_mainloop_unlock(loop_); }
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

 private:
    pa_threaded_mainloop* const loop_;
};

}  // namespace zav::detail
