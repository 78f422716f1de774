#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/PeakMeter.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"
#include "ZAVAudioStreaming/support/ThreadRole.hpp"

namespace zav::detail {

/// A ring that carries captured audio from the device to an input queue. It takes no lock.
///
/// Roles: the *device* pushes. The *taker* takes. The thread that holds the lock of the queue's
/// audio is the taker. One thread at a time plays each role. Debug builds assert this. Each role
/// writes its own count of bytes and reads the other's. Both counts are whole frames.
class CaptureRing final : public CaptureClient {
 public:
    /// The device calls `wake` when the ring contains the number of bytes given to `wakeAt`.
    CaptureRing(const AudioStreamBasicDescription& pcm, std::size_t frameCapacity,
                std::function<void()> wake);

    /// Empties the ring and begins a new run. No device stream may be open.
    void clear();

    /// Taker. Returns the oldest bytes in the ring, up to the end of its memory. The next call
    /// returns the bytes after that end. The result is empty only if the ring is empty. `release`
    /// removes the first bytes.
    std::span<const std::byte> peek() const;
    void release(std::size_t byteCount);

    /// Taker. The device then calls `wake` when the ring contains this many bytes or is full.
    /// Returns false if the ring contains this many bytes already.
    bool wakeAt(std::size_t byteCount);

    /// Taker. Returns true once if the device holds audio back and the ring has room again. The
    /// caller must then notify the device.
    bool takeHeldBack();

    std::uint64_t capturedFrames() const { return pushedBytes_ / bytesPerFrame_; }
    /// Number of times that the ring became full in this run.
    std::uint32_t interruptionCount() const { return interruptionCount_; }
    AudioQueueLevel takeLevel() { return meter_.take(); }
    bool isDeviceGone() const { return isDeviceGone_; }

    // The device.
    std::size_t push(std::span<const std::byte> captured) noexcept override;
    void deviceGone() noexcept override;

 private:
    const std::uint32_t bytesPerFrame_;
    const std::function<void()> wake_;
    std::vector<std::byte> ring_;
    PeakMeter meter_;

    ThreadRole device_;
    mutable ThreadRole taker_;

    std::atomic<std::uint64_t> pushedBytes_{0};
    std::atomic<std::uint64_t> takenBytes_{0};
    std::atomic<std::size_t> wakeAt_{0};
    std::atomic<std::uint32_t> interruptionCount_{0};
    std::atomic<bool> isHeldBack_{false};
    std::atomic<bool> isDeviceGone_{false};
};

}  // namespace zav::detail
