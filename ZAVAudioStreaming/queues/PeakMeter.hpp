#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {

/// Measures the peak of a device's PCM. The measurement costs time, so it begins with the first
/// `take`.
///
/// Threads: `add` on the device thread, without locks; `take` on any.
class PeakMeter {
 public:
    /// `pcm` is a format of `QueueDevice`.
    explicit PeakMeter(const AudioStreamBasicDescription& pcm);

    /// Begins a new run. No device stream may be open.
    void clear();
    /// Adds whole samples to the measurement.
    void add(std::span<const std::byte> pcm) noexcept;
    /// Returns the peak since the last call, and the clipped samples since the run began.
    AudioQueueLevel take() noexcept;

 private:
    using Measure = AudioQueueLevel (*)(std::span<const std::byte> pcm);

    static Measure measureOf(const AudioStreamBasicDescription& pcm);

    static_assert(std::atomic<double>::is_always_lock_free);

    const Measure measure_;
    std::atomic<bool> isWatched_{false};
    std::atomic<double> peak_{0};
    std::atomic<std::uint64_t> clippedSampleCount_{0};
};

}  // namespace zav::detail
