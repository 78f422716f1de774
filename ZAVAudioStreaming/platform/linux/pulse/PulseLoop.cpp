#include "ZAVAudioStreaming/platform/linux/pulse/PulseLoop.hpp"

#include <mutex>
#include <new>

namespace zav {
namespace {

std::mutex mutex;
pa_threaded_mainloop* shared = nullptr;
int userCount = 0;

}  // namespace

PulseLoop::PulseLoop() {
    const std::lock_guard lock(mutex);
    if (userCount == 0) {
        shared = pa_threaded_mainloop_new();
        if (shared == nullptr) {
            throw std::bad_alloc();
        }
        if (pa_threaded_mainloop_start(shared) < 0) {
            pa_threaded_mainloop_free(shared);
            throw std::bad_alloc();
        }
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

}  // namespace zav
