#pragma once

#include <pulse/pulseaudio.h>

#include <functional>

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseLoop.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseObjects.hpp"

namespace zav::detail {

/// A connection to the sound server. Each stream has one: a server that died or hangs is left
/// behind with it.
///
/// Threads: with the lock, but for the constructor and the destructor.
class PulseConnection {
 public:
    PulseConnection() = default;
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    /// Connects to the server of the user's settings; none is started. Statuses:
    /// kAudioQueueErr_InvalidDevice there is none, kAudioQueueErr_CannotStart it does not answer
    /// until `deadline` (of `pa_rtclock_now`) or refuses.
    OSStatus open(pa_usec_t deadline);

    /// Leaves the server, without waiting for it. After this nothing is called back any more.
    void close() { context_.reset(); }

    const PulseLoop& loop() const { return loop_; }
    pa_context* context() const { return context_.get(); }

    /// What has gone wrong last, as a status.
    OSStatus status() const;

    /// Waits until `isMet`, which is asked whenever `wake` was called; false when it is not met by
    /// `deadline`. The lock is free meanwhile.
    bool waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet);
    void wake() { pa_threaded_mainloop_signal(loop_.get(), 0); }

 private:
    const PulseLoop loop_;
    PulseContext context_;
};

}  // namespace zav::detail
