#pragma once

#include <pulse/pulseaudio.h>

#include <functional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/platform/linux/pulse/PulseObjects.hpp"

namespace zav {

/// A connection to the sound server with a thread of its own, the device thread, that serves it.
/// Each stream has one: a server that died or hangs is left behind with it.
///
/// Threads: `open` and `close` without the lock, the rest with it (`PulseLock`), which libpulse
/// holds whenever it calls us on the device thread.
class PulseConnection {
 public:
    PulseConnection() = default;
    ~PulseConnection() { close(); }
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    /// Connects to the server of the user's settings; none is started. Statuses:
    /// kAudioQueueErr_InvalidDevice there is none, kAudioQueueErr_CannotStart it does not answer
    /// until `deadline` (of `pa_rtclock_now`) or refuses.
    OSStatus open(pa_usec_t deadline);

    /// Ends the device thread, without waiting for the server. After this nothing calls us any
    /// more, and no lock is needed.
    void close();

    pa_threaded_mainloop* loop() const { return loop_.get(); }
    pa_context* context() const { return context_.get(); }

    /// What has gone wrong last, as a status.
    OSStatus status() const;

    /// Waits until `isMet`, which is asked whenever `wake` was called; false when it is not met by
    /// `deadline`.
    bool waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet);
    void wake() { pa_threaded_mainloop_signal(loop_.get(), 0); }

 private:
    PulseMainloop loop_;
    PulseContext context_;
    bool isRunning_ = false;
};

/// Holds a connection's lock.
class PulseLock {
 public:
    explicit PulseLock(const PulseConnection& connection) : loop_(connection.loop()) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~PulseLock() { pa_threaded_mainloop_unlock(loop_); }
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

 private:
    pa_threaded_mainloop* const loop_;
};

}  // namespace zav
