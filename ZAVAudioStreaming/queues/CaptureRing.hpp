#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/PeakMeter.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// The way of captured audio from the device to an input queue: a ring of bytes, without locks.
///
/// Roles: the *device thread* pushes, one *taker* at a time (whoever holds the queue's lock) takes.
/// Each writes its own count of bytes, in whole frames, and reads the other's.
class CaptureRing final : public CaptureClient {
 public:
    /// `wake` is called on the device thread when as much is there as was asked for.
    CaptureRing(const AudioStreamBasicDescription& pcm, std::size_t frameCapacity,
                std::function<void()> wake);

    /// While no device is there: empties the ring and begins a new run.
    void clear();

    /// Taker. What is there, in one piece as far as it does not go round the ring's end; `release`
    /// gives its first bytes up.
    std::span<const std::byte> peek() const;
    void release(std::size_t byteCount);

    /// Taker. Has `wake` called when this much is there, or the ring is full. False when it is
    /// there already.
    bool wakeAt(std::size_t byteCount);

    /// Taker. Whether the device holds audio back and there is room again: true once, then the
    /// device has to be told.
    bool takeHeldBack();

    std::uint64_t capturedFrames() const { return pushedBytes_ / bytesPerFrame_; }
    /// How often the ring became full in this run.
    std::uint32_t interruptionCount() const { return interruptionCount_; }
    AudioQueueLevel takeLevel() { return meter_.take(); }
    bool isDeviceGone() const { return isDeviceGone_; }

    // The device's side.
    std::size_t push(std::span<const std::byte> captured) noexcept override;
    void deviceGone() noexcept override;

 private:
    const std::uint32_t bytesPerFrame_;
    const std::function<void()> wake_;
    std::vector<std::byte> ring_;
    PeakMeter meter_;

    std::atomic<std::uint64_t> pushedBytes_{0};
    std::atomic<std::uint64_t> takenBytes_{0};
    std::atomic<std::size_t> wakeAt_{0};
    std::atomic<std::uint32_t> interruptionCount_{0};
    std::atomic<bool> isHeldBack_{false};
    std::atomic<bool> isDeviceGone_{false};
};

}  // namespace zav::detail
