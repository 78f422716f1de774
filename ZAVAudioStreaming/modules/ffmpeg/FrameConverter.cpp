#include "ZAVAudioStreaming/modules/ffmpeg/FrameConverter.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <bit>

namespace zav::detail {
namespace {

/// Returns a layout that owns no memory. If the order of `layout` is not FFmpeg's native order,
/// returns the usual layout for its number of channels.
AVChannelLayout plainLayout(const AVChannelLayout& layout) {
    if (layout.order != AV_CHANNEL_ORDER_NATIVE) {
        return usualLayout(static_cast<std::uint32_t>(layout.nb_channels));
    }
    AVChannelLayout plain{};
    plain.order = layout.order;
    plain.nb_channels = layout.nb_channels;
    plain.u.mask = layout.u.mask;
    return plain;
}

bool areEqual(const PcmShape& left, const PcmShape& right) {
    return left.sampleFormat == right.sampleFormat && left.rate == right.rate &&
           av_channel_layout_compare(&left.layout, &right.layout) == 0;
}

}  // namespace

AudioStreamBasicDescription pcmDescription(AVSampleFormat sampleFormat, double rate,
                                           std::uint32_t channels) {
    const auto bytesPerSample = static_cast<std::uint32_t>(av_get_bytes_per_sample(sampleFormat));
    AudioStreamBasicDescription pcm = linearPcm(rate, channels, bytesPerSample * 8);
    if (sampleFormat == AV_SAMPLE_FMT_FLT) {
        pcm.mFormatFlags ^= kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsFloat;
    }
    if constexpr (std::endian::native == std::endian::big) {
        pcm.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    }
    return pcm;
}

FrameConverter::FrameConverter(AVSampleFormat sampleFormat, std::uint32_t rate,
                               std::uint32_t channels)
    : to_{sampleFormat, static_cast<int>(rate), usualLayout(channels)},
      bytesPerFrame_(static_cast<std::size_t>(av_get_bytes_per_sample(sampleFormat)) * channels) {}

void FrameConverter::append(const AVFrame& frame, std::vector<std::byte>& pcm) {
    constexpr int kMostTimesOff = 8;
    const PcmShape shape{static_cast<AVSampleFormat>(frame.format),
                         frame.sample_rate > 0 ? frame.sample_rate : to_.rate,
                         plainLayout(frame.ch_layout)};
    if (shape.rate < to_.rate / kMostTimesOff || shape.rate / kMostTimesOff > to_.rate ||
        shape.layout.nb_channels <= 0) {
        return;
    }
    if (resampler_ == nullptr || !areEqual(shape, from_)) {
        finish(pcm);
        // If the number of channels is right, the order of the channels stays.
        PcmShape to = to_;
        if (shape.layout.nb_channels == to.layout.nb_channels) {
            to.layout = shape.layout;
        }
        resampler_ = makeResampler(shape, to);
        from_ = shape;
    }
    if (resampler_ != nullptr) {
        convert(&frame, pcm);
    }
}

void FrameConverter::finish(std::vector<std::byte>& pcm) {
    if (resampler_ != nullptr) {
        convert(nullptr, pcm);
    }
    resampler_.reset();
}

void FrameConverter::convert(const AVFrame* frame, std::vector<std::byte>& pcm) {
    const int frameCount = frame == nullptr ? 0 : frame->nb_samples;
    const auto** const in =
        frame == nullptr ? nullptr : const_cast<const std::uint8_t**>(frame->extended_data);
    const int room = std::max(swr_get_out_samples(resampler_.get(), frameCount), 0);
    const std::size_t end = pcm.size();
    pcm.resize(end + static_cast<std::size_t>(room) * bytesPerFrame_);
    auto* out = reinterpret_cast<std::uint8_t*>(pcm.data() + end);
    const int made = swr_convert(resampler_.get(), &out, room, in, frameCount);
    pcm.resize(end + static_cast<std::size_t>(std::max(made, 0)) * bytesPerFrame_);
}

}  // namespace zav::detail
