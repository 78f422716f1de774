#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"

namespace zav::detail {

/// The record of interleaved samples, one of S16, S32 and FLT in the machine's byte order.
AudioStreamBasicDescription pcmDescription(AVSampleFormat sampleFormat, double rate,
                                           std::uint32_t channels);

/// Brings what a decoder gives into one form, whatever the stream turns out to be.
class FrameResampler {
 public:
    /// `sampleFormat` is an interleaved one.
    FrameResampler(AVSampleFormat sampleFormat, std::uint32_t rate, std::uint32_t channels);

    /// Appends the audio of a frame to `pcm`. Audio that cannot be converted is left out, and so is
    /// a rate that is more than eight times off: that is damage, and would grow beyond all bounds.
    void append(const AVFrame& frame, std::vector<std::byte>& pcm);

    /// The stream ends: appends what a change of rate has held back.
    void finish(std::vector<std::byte>& pcm);

    /// Forgets the stream so far.
    void reset() { resampler_.reset(); }

 private:
    void convert(const AVFrame* frame, std::vector<std::byte>& pcm);

    PcmShape to_;
    std::size_t bytesPerFrame_;
    PcmShape from_{};
    Resampler resampler_;  // from `from_` to `to_`; null before the first frame
};

}  // namespace zav::detail
