#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"

#include "ZAVAudioStreaming/modules/pulse/PulseTimer.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

void wakeWaiter(pa_context* /*context*/, void* connection) noexcept {
    static_cast<PulseConnection*>(connection)->wake();
}

}  // namespace

PulseConnection::~PulseConnection() {
    const PulseLock lock(loop_);
    close();
}

OSStatus PulseConnection::open(pa_usec_t deadline) {
    // Pass no name. The user's mixer then shows the application's name.
    context_.reset(pa_context_new(pa_threaded_mainloop_get_api(loop_.get()), nullptr));
    if (context_ == nullptr) {
        return kAudioQueueErr_CannotStart;
    }
    pa_context_set_state_callback(context(), wakeWaiter, this);
    if (pa_context_connect(context(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        return status();
    }
    const bool isSettled = waitUntil(deadline, [this] {
        assertLocked();
        const pa_context_state_t state = pa_context_get_state(context());
        return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
    });
    if (!isSettled) {
        return kAudioQueueErr_CannotStart;
    }
    return pa_context_get_state(context()) == PA_CONTEXT_READY ? noErr : status();
}

OSStatus PulseConnection::status() const {
    switch (pa_context_errno(context())) {
        case PA_ERR_CONNECTIONREFUSED:
        case PA_ERR_CONNECTIONTERMINATED:
        case PA_ERR_INVALIDSERVER:
        case PA_ERR_NOENTITY:
            return kAudioQueueErr_InvalidDevice;
        default:
            return kAudioQueueErr_CannotStart;
    }
}

bool PulseConnection::waitUntil(pa_usec_t deadline, const std::function<bool()>& isMet) {
    PulseTimer timer(*this, [this] { wake(); });
    timer.callAt(deadline);
    while (!isMet()) {
        if (pa_rtclock_now() >= deadline) {
            return false;
        }
        pa_threaded_mainloop_wait(loop_.get());
    }
    return true;
}

}  // namespace zav::detail
