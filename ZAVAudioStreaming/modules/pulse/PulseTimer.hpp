#pragma once

#include <pulse/pulseaudio.h>

#include <functional>
#include <utility>

#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"

namespace zav::detail {

/// Calls a function on the device thread at a moment that can be put off.
///
/// Threads: with the lock. Goes before the connection closes.
class PulseTimer {
 public:
    PulseTimer(const PulseConnection& connection, std::function<void()> function)
        : connection_(connection),
          function_(std::move(function)),
          event_(pa_context_rttime_new(connection.context(), PA_USEC_INVALID, call, this)) {}
    ~PulseTimer() { api()->time_free(event_); }
    PulseTimer(const PulseTimer&) = delete;
    PulseTimer& operator=(const PulseTimer&) = delete;

    /// One call at `moment` of `pa_rtclock_now`, in place of any other.
    void callAt(pa_usec_t moment) {
        pa_context_rttime_restart(connection_.context(), event_, moment);
    }
    void stop() { callAt(PA_USEC_INVALID); }

 private:
    static void call(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*moment*/,
                     void* timer) noexcept {
        static_cast<PulseTimer*>(timer)->function_();
    }
    pa_mainloop_api* api() const { return pa_threaded_mainloop_get_api(connection_.loop().get()); }

    const PulseConnection& connection_;
    const std::function<void()> function_;
    pa_time_event* const event_;
};

}  // namespace zav::detail
