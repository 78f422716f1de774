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

/// The ring through which captured audio goes from the device to an input queue. It takes no lock.
///
/// Roles: the *device* pushes. The *taker*, which is whoever holds the lock of the queue's audio,
/// takes. Each role is played by one thread at a time; debug builds assert it. Each role writes its
/// own count of bytes, whole frames, and reads the other's.
class CaptureRing final : public CaptureClient {
 public:
    /// The device calls `wake` when the ring contains as many bytes as `wakeAt` asked for.
    CaptureRing(const AudioStreamBasicDescription& pcm, std::size_t frameCapacity,
                std::function<void()> wake);

    /// Empties the ring and begins a new run. No stream of a device is open.
    void clear();

    /// Taker. The oldest bytes in the ring, up to its end in memory; the bytes that follow there
    /// come with the next call. Empty only if the ring is. `release` removes the first ones.
    std::span<const std::byte> peek() const;
    void release(std::size_t byteCount);

    /// Taker. Has `wake` called when the ring contains this many bytes, or is full. Returns false
    /// if it contains as many already.
    bool wakeAt(std::size_t byteCount);

    /// Taker. Returns true, once, if the device holds audio back and there is room again. The
    /// caller then notifies the device.
    bool takeHeldBack();

    std::uint64_t capturedFrames() const { return pushedBytes_ / bytesPerFrame_; }
    /// How often the ring became full in this run.
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
