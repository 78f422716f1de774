#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/modules/pulse/PulseStream.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// Captures through the sound server. If the client has no room, audio stays in libpulse, which
/// keeps some megabytes.
///
/// Threads: as `CaptureStream`. All other members need the lock of the loop.
class PulseCapture final : public CaptureStream, private PulseStream {
 public:
    explicit PulseCapture(CaptureClient& client) : client_(client) {}
    ~PulseCapture() override {
        const PulseLock lock(loop());
        close();
    }
    PulseCapture(const PulseCapture&) = delete;
    PulseCapture& operator=(const PulseCapture&) = delete;

    /// Statuses: those of `QueueDevice`. Called once.
    OSStatus open(const AudioStreamBasicDescription& format);

    void finish() override;
    void roomAdded() override;

 private:
    void opened() override ZAV_REQUIRES(loop());
    void heard() noexcept override ZAV_REQUIRES(loop()) {}
    void lost() noexcept override ZAV_REQUIRES(loop());

    /// Pushes captured audio while the client has room.
    void deliver() ZAV_REQUIRES(loop());

    CaptureClient& client_;
    std::vector<std::byte> silence_ ZAV_GUARDED_BY(loop());
    /// The part of the last fragment for which the client had no room.
    std::vector<std::byte> kept_ ZAV_GUARDED_BY(loop());
    /// The next bytes to push. They lie in one of the two vectors above.
    std::span<const std::byte> pending_ ZAV_GUARDED_BY(loop());
    /// Number of bytes that the server has lost. Silence replaces them after `pending_`.
    std::size_t missingBytes_ ZAV_GUARDED_BY(loop()) = 0;
    bool isFull_ ZAV_GUARDED_BY(loop()) = false;
    bool isFinished_ ZAV_GUARDED_BY(loop()) = false;
};

}  // namespace zav::detail
