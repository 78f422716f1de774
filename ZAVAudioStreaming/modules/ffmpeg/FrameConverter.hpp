#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"

namespace zav::detail {

/// The format record of interleaved samples in native byte order: S16, S32 or FLT.
AudioStreamBasicDescription pcmDescription(AVSampleFormat sampleFormat, double rate,
                                           std::uint32_t channels);

/// Converts decoded frames into one PCM format, even if the format of the stream changes.
class FrameConverter {
 public:
    /// `sampleFormat` must be interleaved; `rate` is in Hz.
    FrameConverter(AVSampleFormat sampleFormat, std::uint32_t rate, std::uint32_t channels);

    /// Appends the audio of a frame to `pcm`. Leaves out audio that cannot be converted. Also
    /// leaves out audio whose rate differs from the target rate by more than a factor of eight.
    /// Such a rate is a sign of damage, and the conversion could take unbounded memory.
    void append(const AVFrame& frame, std::vector<std::byte>& pcm);

    /// Ends the stream: appends the audio that a change of rate still holds.
    void finish(std::vector<std::byte>& pcm);

    /// Drops the audio that a change of rate still holds. A new stream can follow.
    void reset() { resampler_.reset(); }

 private:
    void convert(const AVFrame* frame, std::vector<std::byte>& pcm);

    PcmShape to_;
    std::size_t bytesPerFrame_;
    PcmShape from_{};
    Resampler resampler_;  // from `from_` to `to_`; null before the first frame
};

}  // namespace zav::detail
