#pragma once

#include <pulse/pulseaudio.h>

#include <functional>
#include <utility>

#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"

namespace zav::detail {

/// Calls a function on the device thread at a given time. The lock of the loop is held while the
/// function runs.
///
/// Threads: call with the lock of the loop. Destroy the timer before the connection closes.
class PulseTimer {
 public:
    PulseTimer(const PulseConnection& connection, std::function<void()> function)
        : function_(std::move(function)),
          context_(contextOf(connection)),
          api_(pa_threaded_mainloop_get_api(connection.loop().get())),
          event_(pa_context_rttime_new(context_, PA_USEC_INVALID, call, this)) {}
    ~PulseTimer() { api_->time_free(event_); }
    PulseTimer(const PulseTimer&) = delete;
    PulseTimer& operator=(const PulseTimer&) = delete;

    /// Calls the function once, at `time` (a time of `pa_rtclock_now`). Replaces an earlier time.
    void callAt(pa_usec_t time) { pa_context_rttime_restart(context_, event_, time); }
    void stop() { callAt(PA_USEC_INVALID); }

 private:
    static void call(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*time*/,
                     void* timer) noexcept {
        static_cast<PulseTimer*>(timer)->function_();
    }
    static pa_context* contextOf(const PulseConnection& connection) {
        connection.assertLocked();
        return connection.context();
    }

    const std::function<void()> function_;
    pa_context* const context_;
    pa_mainloop_api* const api_;
    pa_time_event* const event_;
};

}  // namespace zav::detail
