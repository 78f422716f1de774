#pragma once

#include <pulse/pulseaudio.h>

#include <functional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseLoop.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseObjects.hpp"

namespace zav::detail {

/// A connection to the sound server. Each stream has its own connection. When a server dies or
/// hangs, a stream closes together with its connection.
///
/// Threads: call with the lock of the loop. Only the constructor and the destructor take the lock
/// themselves.
class PulseConnection {
 public:
    PulseConnection() = default;
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    const PulseLoop& loop() const ZAV_RETURN_CAPABILITY(loop_) { return loop_; }

    /// Connects to the server in the user's settings. Does not start a server. Statuses:
    /// kAudioQueueErr_InvalidDevice if there is no server, kAudioQueueErr_CannotStart if the server
    /// refuses or does not answer by `deadline` (a time of `pa_rtclock_now`).
    OSStatus open(pa_usec_t deadline) ZAV_REQUIRES(loop_);

    /// Disconnects without waiting for the server. No callback comes after this.
    void close() ZAV_REQUIRES(loop_) { context_.reset(); }

    pa_context* context() const ZAV_REQUIRES(loop_) { return context_.get(); }

    /// Returns the last error of the connection as a status.
    OSStatus status() const ZAV_REQUIRES(loop_);

    /// Waits until `isMet` returns true. Calls `isMet` after each `wake`. Returns false if `isMet`
    /// is still false at `deadline`. Releases the lock while it waits.
    bool waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet) ZAV_REQUIRES(loop_);
    void wake() { pa_threaded_mainloop_signal(loop_.get(), 0); }

    /// Call inside a callback of libpulse. libpulse holds the lock there.
    void assertLocked() const ZAV_ASSERT_CAPABILITY(loop_) {}

 private:
    const PulseLoop loop_;
    PulseContext context_ ZAV_GUARDED_BY(loop_);
};

}  // namespace zav::detail
