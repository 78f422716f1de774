#pragma once

#include <pulse/pulseaudio.h>

#include <functional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseLoop.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseObjects.hpp"

namespace zav::detail {

/// A connection to the sound server. Each stream has its own: when a server dies or hangs, its
/// streams leave it together with their connections.
///
/// Threads: with the lock of the loop. Only the constructor and the destructor take it themselves.
class PulseConnection {
 public:
    PulseConnection() = default;
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    const PulseLoop& loop() const ZAV_RETURN_CAPABILITY(loop_) { return loop_; }

    /// Connects to the server of the user's settings, and starts none. Statuses:
    /// kAudioQueueErr_InvalidDevice if there is no server, kAudioQueueErr_CannotStart if it refuses
    /// or does not answer by `deadline` (a time of `pa_rtclock_now`).
    OSStatus open(pa_usec_t deadline) ZAV_REQUIRES(loop_);

    /// Disconnects without waiting for the server. No callback comes after this.
    void close() ZAV_REQUIRES(loop_) { context_.reset(); }

    pa_context* context() const ZAV_REQUIRES(loop_) { return context_.get(); }

    /// The last error of the connection, as a status.
    OSStatus status() const ZAV_REQUIRES(loop_);

    /// Waits until `isMet`, which is called after each `wake`. Returns false if it is not met by
    /// `deadline`. The lock is free while this waits.
    bool waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet) ZAV_REQUIRES(loop_);
    void wake() { pa_threaded_mainloop_signal(loop_.get(), 0); }

    /// Called inside a callback of libpulse, which holds the lock.
    void assertLocked() const ZAV_ASSERT_CAPABILITY(loop_) {}

 private:
    const PulseLoop loop_;
    PulseContext context_ ZAV_GUARDED_BY(loop_);
};

}  // namespace zav::detail
