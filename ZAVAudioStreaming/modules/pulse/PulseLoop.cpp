#include "ZAVAudioStreaming/modules/pulse/PulseLoop.hpp"

#include <new>
#include <semaphore>

namespace zav::detail {
namespace {

struct SharedLoop {
    Mutex mutex;
    pa_threaded_mainloop* loop ZAV_GUARDED_BY(mutex) = nullptr;
    int userCount ZAV_GUARDED_BY(mutex) = 0;
};

SharedLoop shared;

pa_threaded_mainloop* startedLoop() {
    pa_threaded_mainloop* const loop = pa_threaded_mainloop_new();
    if (loop == nullptr) {
        throw std::bad_alloc();
    }
    std::binary_semaphore isUp(0);
    const auto announce = [](pa_mainloop_api* /*api*/, void* semaphore) noexcept {
        static_cast<std::binary_semaphore*>(semaphore)->release();
    };
    pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop), announce, &isUp);
    if (pa_threaded_mainloop_start(loop) < 0) {
        pa_threaded_mainloop_free(loop);
        throw std::bad_alloc();
    }
    // The thread and the first caller that takes the lock both initialise the same data in
    // libpulse. ThreadSanitizer cannot see how libpulse orders this. Wait here, so that the thread
    // goes first.
    isUp.acquire();
    return loop;
}

}  // namespace

PulseLoop::PulseLoop() {
    const MutexLock lock(shared.mutex);
    if (shared.userCount == 0) {
        shared.loop = startedLoop();
    }
    ++shared.userCount;
    loop_ = shared.loop;
}

PulseLoop::~PulseLoop() {
    const MutexLock lock(shared.mutex);
    if (--shared.userCount == 0) {
        pa_threaded_mainloop_stop(shared.loop);
        pa_threaded_mainloop_free(shared.loop);
    }
}

}  // namespace zav::detail
