#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/modules/pulse/PulseStream.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// Captures through the sound server. What the client has no room for stays with libpulse, which
/// keeps some megabytes.
///
/// Threads: as `CaptureStream`; the rest runs with the connection's lock.
class PulseCapture final : public CaptureStream, private PulseStream {
 public:
    explicit PulseCapture(CaptureClient& client) : client_(client) {}
    ~PulseCapture() override {
        const PulseLock lock(loop());
        close();
    }
    PulseCapture(const PulseCapture&) = delete;
    PulseCapture& operator=(const PulseCapture&) = delete;

    /// Statuses: those of `QueueDevice`. Once.
    OSStatus open(const AudioStreamBasicDescription& format);

    void finish() override;
    void roomAdded() override;

 private:
    void opened() override;
    void heard() noexcept override {}
    void lost() noexcept override;

    /// Hands on what is there, as far as the client has room.
    void deliver();

    CaptureClient& client_;
    std::vector<std::byte> silence_;
    /// What the client had no room for of the last fragment; its size is at most a fragment's.
    std::vector<std::byte> kept_;
    /// What is next, in one of these two.
    std::span<const std::byte> pending_;
    /// What the server has lost: silence in its place is next after that.
    std::size_t missingBytes_ = 0;
    bool isFull_ = false;
    bool isFinished_ = false;
};

}  // namespace zav::detail
