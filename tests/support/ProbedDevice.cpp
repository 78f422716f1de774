#include "ProbedDevice.hpp"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace zav::test {
namespace {

std::atomic<int> probedCalls{0};
std::atomic<int> allocations{0};
std::atomic<int> locks{0};
thread_local int probesOnThread = 0;

void countAllocation() {
    allocations += probesOnThread > 0 ? 1 : 0;
}

class ProbedPlayback final : public PlaybackClient, public PlaybackStream {
 public:
    explicit ProbedPlayback(PlaybackClient& client) : client_(client) {}

    std::size_t pull(std::span<std::byte> room) noexcept override {
        const RealTimeProbe probe;
        return client_.pull(room);
    }
    std::uint64_t mark() const noexcept override {
        const RealTimeProbe probe;
        return client_.mark();
    }
    void played(std::uint64_t frameCount) noexcept override {
        const RealTimeProbe probe;
        client_.played(frameCount);
    }
    void ranDry() noexcept override {
        const RealTimeProbe probe;
        client_.ranDry();
    }
    void deviceGone() noexcept override {
        const RealTimeProbe probe;
        client_.deviceGone();
    }

    OSStatus start() override { return stream_->start(); }
    OSStatus pause() override { return stream_->pause(); }
    void audioAdded() override { stream_->audioAdded(); }
    void drain() override { stream_->drain(); }
    std::uint64_t framesPlayed() override { return stream_->framesPlayed(); }

    std::unique_ptr<PlaybackStream>& stream() { return stream_; }

 private:
    PlaybackClient& client_;
    std::unique_ptr<PlaybackStream> stream_;
};

class ProbedCapture final : public CaptureClient, public CaptureStream {
 public:
    explicit ProbedCapture(CaptureClient& client) : client_(client) {}

    std::size_t push(std::span<const std::byte> captured) noexcept override {
        const RealTimeProbe probe;
        return client_.push(captured);
    }
    void deviceGone() noexcept override {
        const RealTimeProbe probe;
        client_.deviceGone();
    }

    void finish() override { stream_->finish(); }
    void roomAdded() override { stream_->roomAdded(); }

    std::unique_ptr<CaptureStream>& stream() { return stream_; }

 private:
    CaptureClient& client_;
    std::unique_ptr<CaptureStream> stream_;
};

}  // namespace

RealTimeProbe::RealTimeProbe() {
    ++probesOnThread;
    ++probedCalls;
}

RealTimeProbe::~RealTimeProbe() {
    --probesOnThread;
}

int RealTimeProbe::probedCallCount() {
    return probedCalls;
}

int RealTimeProbe::allocationCount() {
    return allocations;
}

int RealTimeProbe::lockCount() {
    return locks;
}

void RealTimeProbe::reset() {
    probedCalls = allocations = locks = 0;
}

OSStatus ProbedDevice::openPlayback(const AudioStreamBasicDescription& format,
                                    PlaybackClient& client,
                                    std::unique_ptr<PlaybackStream>& stream) {
    auto probed = std::make_unique<ProbedPlayback>(client);
    const OSStatus status = device_.openPlayback(format, *probed, probed->stream());
    if (status == noErr) {
        stream = std::move(probed);
    }
    return status;
}

OSStatus ProbedDevice::openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                                   std::unique_ptr<CaptureStream>& stream) {
    auto probed = std::make_unique<ProbedCapture>(client);
    const OSStatus status = device_.openCapture(format, *probed, probed->stream());
    if (status == noErr) {
        stream = std::move(probed);
    }
    return status;
}

}  // namespace zav::test

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    zav::test::countAllocation();
    return __real_malloc(size);
}
void __real_free(void* memory);
void __wrap_free(void* memory) {
    zav::test::countAllocation();
    __real_free(memory);
}
void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size) {
    zav::test::countAllocation();
    return __real__Znwm(size);
}
void __real__ZdlPvm(void* memory, std::size_t size);
void __wrap__ZdlPvm(void* memory, std::size_t size) {
    zav::test::countAllocation();
    __real__ZdlPvm(memory, size);
}
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    zav::test::locks += zav::test::probesOnThread > 0 ? 1 : 0;
    return __real_pthread_mutex_lock(mutex);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
