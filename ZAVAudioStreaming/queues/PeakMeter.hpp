#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {

/// Measures how loud the PCM is that goes to a device or comes from it. The first `take` begins
/// that: nobody pays for what nobody looks at.
///
/// Threads: `add` on the device thread, without locks; `take` on any.
class PeakMeter {
 public:
    /// For a format that devices take (`QueueDevice`).
    explicit PeakMeter(const AudioStreamBasicDescription& pcm);

    /// While no device is there: begins a new run.
    void clear();
    /// Whole samples.
    void add(std::span<const std::byte> pcm) noexcept;
    /// The peak since the last call, the clipped samples since the run began.
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
