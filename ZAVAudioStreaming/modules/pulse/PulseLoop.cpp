#include "ZAVAudioStreaming/modules/pulse/PulseLoop.hpp"

#include <mutex>
#include <new>
#include <semaphore>

namespace zav::detail {
namespace {

std::mutex mutex;
pa_threaded_mainloop* shared = nullptr;
int userCount = 0;

pa_threaded_mainloop* startedLoop() {
    pa_threaded_mainloop* const loop = pa_threaded_mainloop_new();
    if (loop == nullptr) {
        throw std::bad_alloc();
    }
    std::binary_semaphore isUp(0);
    const auto tell = [](pa_mainloop_api* /*api*/, void* semaphore) noexcept {
        static_cast<std::binary_semaphore*>(semaphore)->release();
    };
    pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop), tell, &isUp);
    if (pa_threaded_mainloop_start(loop) < 0) {
        pa_threaded_mainloop_free(loop);
        throw std::bad_alloc();
    }
    // The thread and the first one that asks for the lock set up the same things in libpulse, once
    // more out of ThreadSanitizer's sight: one after the other.
    isUp.acquire();
    return loop;
}

}  // namespace

PulseLoop::PulseLoop() {
    const std::lock_guard lock(mutex);
    if (userCount == 0) {
        shared = startedLoop();
    }
    ++userCount;
    loop_ = shared;
}

PulseLoop::~PulseLoop() {
    const std::lock_guard lock(mutex);
    if (--userCount == 0) {
        pa_threaded_mainloop_stop(shared);
        pa_threaded_mainloop_free(shared);
    }
}

}  // namespace zav::detail
