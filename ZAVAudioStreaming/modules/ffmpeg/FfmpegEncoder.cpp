#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegEncoder.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <optional>
#include <utility>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FrameConverter.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/LargestPacket.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/SourceDepth.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/DeviceRate.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

struct Encoder {
    AVCodecID codec;
    const char* name;
    std::uint32_t mostChannels;
    AVSampleFormat sampleFormat;
    AVSampleFormat deepSampleFormat;  ///< for more than 16 bits
};

constexpr std::array<Encoder, 4> kEncoders = {{
    {AV_CODEC_ID_AAC, "aac", 8, AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_NONE},
    {AV_CODEC_ID_ALAC, "alac", 8, AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S32P},
    {AV_CODEC_ID_FLAC, "flac", 8, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S32},
    // libavcodec's own Opus encoder is marked as experimental.
    {AV_CODEC_ID_OPUS, "libopus", 2, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_NONE},
}};

constexpr std::uint32_t kShallow = 16;
constexpr std::uint32_t kDeep = 24;

const Encoder& encoderOf(const AudioStreamBasicDescription& format) {
    const AVCodecID codec = codecOf(format.mFormatID);
    const auto* const found =
        std::find_if(kEncoders.begin(), kEncoders.end(),
                     [codec](const Encoder& encoder) { return encoder.codec == codec; });
    if (found == kEncoders.end()) {
        throw StatusFailure(kAudioFormatUnsupportedDataFormatError);
    }
    return *found;
}

bool isRate(const AVCodec& codec, double rate) {
    if (!isDeviceRate(rate)) {
        return false;
    }
    const int* known = codec.supported_samplerates;
    while (known != nullptr && *known != 0 && *known != static_cast<int>(rate)) {
        ++known;
    }
    return known == nullptr || *known != 0;
}

/// The usual layout of this number of channels; empty if the codec has no layout for it.
std::optional<AVChannelLayout> layoutFor(const AVCodec& codec, std::uint32_t channels) {
    for (const AVChannelLayout* layout = codec.ch_layouts;
         layout != nullptr && layout->nb_channels != 0; ++layout) {
        if (layout->nb_channels == static_cast<int>(channels)) {
            return *layout;
        }
    }
    // AAC has a code for every number of channels but 7.
    if (codec.ch_layouts != nullptr || (codec.id == AV_CODEC_ID_AAC && channels == 7)) {
        return std::nullopt;
    }
    return usualLayout(channels);
}

/// The depth of the encoded samples, in bits; 0 if the format's depth cannot be encoded.
std::uint32_t encodedDepth(AVCodecID codec, const AudioStreamBasicDescription& format) {
    const std::uint32_t depth = sourceDepthOf(format);
    if (!isLossless(codec) || depth == 0 || depth == kShallow) {
        return kShallow;
    }
    return depth == 20 || depth == kDeep ? kDeep : 0;
}

/// RFC 6716, section 3.2: a packet has two bytes of header. Each frame has two bytes of length and
/// at most 1275 of audio. The encoder makes one frame for every 20 ms.
std::uint32_t largestOpusPacket(const AudioStreamBasicDescription& format) {
    constexpr std::uint32_t kFramesInSecond = 50;
    const auto rate = static_cast<std::uint32_t>(format.mSampleRate);
    const std::uint32_t opusFrames = (format.mFramesPerPacket * kFramesInSecond + rate - 1) / rate;
    return 2 + opusFrames * (2 + 1275);
}

[[noreturn]] void refuseToEncode() {
    throw StatusFailure(kAudioFormatUnsupportedDataFormatError);
}

void setOpusDuration(AVCodecContext& context, const AudioStreamBasicDescription& format) {
    constexpr double kShortest = 2.5;
    constexpr double kLongest = 120;
    const double milliseconds = format.mFramesPerPacket * 1000.0 / format.mSampleRate;
    // libavcodec refuses every duration that Opus does not have. For durations outside this range
    // it also prints a message that we cannot silence, because the message has no context. So we
    // refuse these first.
    if (milliseconds < kShortest || milliseconds > kLongest) {
        refuseToEncode();
    }
    av_opt_set_double(context.priv_data, "frame_duration", milliseconds, 0);
}

}  // namespace

std::unique_ptr<QueueEncoder> makeFfmpegEncoder(const AudioStreamBasicDescription& format) {
    return std::make_unique<FfmpegEncoder>(format);
}

FfmpegEncoder::FfmpegEncoder(const AudioStreamBasicDescription& format) : streamFormat_(format) {
    constexpr std::uint32_t kLowComplexity = 2;
    const Encoder& encoder = encoderOf(format);
    const std::uint32_t depth = encodedDepth(encoder.codec, format);
    const bool isOtherAac = encoder.codec == AV_CODEC_ID_AAC && format.mFormatFlags != 0 &&
                            format.mFormatFlags != kLowComplexity;
    if (depth == 0 || isOtherAac || format.mBytesPerPacket != 0 || format.mChannelsPerFrame < 1 ||
        format.mChannelsPerFrame > encoder.mostChannels) {
        refuseToEncode();
    }
    if (isLossless(encoder.codec)) {
        streamFormat_.mFormatFlags = sourceDepthFlag(depth);
    }
    streamFormat_.mBytesPerFrame = 0;
    streamFormat_.mBitsPerChannel = 0;
    pcmFormat_ = pcmDescription(depth == kShallow ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32,
                                format.mSampleRate, format.mChannelsPerFrame);
    open();
    cookie_ = cookieOfContext();
    if (format.mFramesPerPacket == 0 && encoder.codec == AV_CODEC_ID_FLAC) {
        shortenPackets();
    }
}

void FfmpegEncoder::shortenPackets() {
    while (streamFormat_.mSampleRate / 2 * maximumPacketSize() >
           std::numeric_limits<std::uint32_t>::max()) {
        streamFormat_.mFramesPerPacket /= 2;
        open();
        cookie_ = cookieOfContext();
    }
}

void FfmpegEncoder::open() {
    constexpr double kMostBitRate = 64000;  // bit/s for a channel
    constexpr double kMostBitsPerSample = 2;
    const Encoder& encoder = encoderOf(streamFormat_);
    const AVCodec* const codec = avcodec_find_encoder_by_name(encoder.name);
    if (codec == nullptr || !isRate(*codec, streamFormat_.mSampleRate)) {
        refuseToEncode();
    }
    const auto layout = layoutFor(*codec, streamFormat_.mChannelsPerFrame);
    if (!layout) {
        refuseToEncode();
    }
    const std::uint32_t depth = encodedDepth(encoder.codec, streamFormat_);
    CodecContext context = makeCodecContext(codec);
    context->sample_rate = static_cast<int>(streamFormat_.mSampleRate);
    context->time_base = {1, context->sample_rate};
    context->ch_layout = *layout;
    context->sample_fmt = depth == kShallow ? encoder.sampleFormat : encoder.deepSampleFormat;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    context->frame_size = static_cast<int>(streamFormat_.mFramesPerPacket);
    if (isLossless(encoder.codec)) {
        context->bits_per_raw_sample = static_cast<int>(depth);
    } else {
        context->bit_rate = static_cast<std::int64_t>(
            std::min(kMostBitRate, kMostBitsPerSample * streamFormat_.mSampleRate) *
            streamFormat_.mChannelsPerFrame);
    }
    if (encoder.codec == AV_CODEC_ID_OPUS && streamFormat_.mFramesPerPacket != 0) {
        setOpusDuration(*context, streamFormat_);
    }
    const int result = avcodec_open2(context.get(), codec, nullptr);
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    if (result < 0 ||
        (streamFormat_.mFramesPerPacket != 0 &&
         streamFormat_.mFramesPerPacket != static_cast<std::uint32_t>(context->frame_size))) {
        refuseToEncode();
    }
    converter_ = makeResampler(
        {depth == kShallow ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32, context->sample_rate, *layout},
        {context->sample_fmt, context->sample_rate, *layout});
    if (converter_ == nullptr) {
        refuseToEncode();
    }
    streamFormat_.mFramesPerPacket = static_cast<std::uint32_t>(context->frame_size);
    context_ = std::move(context);
}

std::vector<std::byte> FfmpegEncoder::cookieOfContext() const {
    return cookieOfExtradata(
        context_->codec_id,
        std::as_bytes(
            std::span(context_->extradata, static_cast<std::size_t>(context_->extradata_size))));
}

std::uint32_t FfmpegEncoder::maximumPacketSize() const {
    return context_->codec_id == AV_CODEC_ID_OPUS
               ? largestOpusPacket(streamFormat_)
               : largestPacket(context_->codec_id, streamFormat_, cookie_);
}

void FfmpegEncoder::encode(std::span<const std::byte> pcm, EncodedPackets& packets) {
    const std::size_t size =
        std::size_t{streamFormat_.mFramesPerPacket} * pcmFormat_.mBytesPerFrame;
    if (!remainder_.empty()) {
        const auto missing = pcm.first(std::min(size - remainder_.size(), pcm.size()));
        remainder_.insert(remainder_.end(), missing.begin(), missing.end());
        pcm = pcm.subspan(missing.size());
        if (remainder_.size() < size) {
            return;
        }
        encodePacket(remainder_, packets);
    }
    for (; pcm.size() >= size; pcm = pcm.subspan(size)) {
        encodePacket(pcm.first(size), packets);
    }
    remainder_.assign(pcm.begin(), pcm.end());
}

void FfmpegEncoder::encodePacket(std::span<const std::byte> pcm, EncodedPackets& packets) {
    if (!hasBegun_) {
        hasBegun_ = true;
        cookie_ = cookieOfContext();
    }
    const Frame frame = makeFrame();
    frame->nb_samples = static_cast<int>(pcm.size() / pcmFormat_.mBytesPerFrame);
    frame->format = context_->sample_fmt;
    frame->sample_rate = context_->sample_rate;
    frame->ch_layout = context_->ch_layout;
    frame->pts = frameCount_;
    frameCount_ += frame->nb_samples;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    const auto* in = reinterpret_cast<const std::uint8_t*>(pcm.data());
    swr_convert(converter_.get(), frame->extended_data, frame->nb_samples, &in, frame->nb_samples);
    send(frame.get(), packets);
}

void FfmpegEncoder::send(const AVFrame* frame, EncodedPackets& packets) {
    int result = avcodec_send_frame(context_.get(), frame);
    while (result >= 0) {
        result = avcodec_receive_packet(context_.get(), packet_.get());
        if (result >= 0) {
            takeCookie(*packet_);
            append(*packet_, packets);
        }
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) {
        // Integer samples can always be encoded, so memory is the only reason left.
        throw std::bad_alloc();
    }
}

void FfmpegEncoder::takeCookie(const AVPacket& packet) {
    std::size_t size = 0;
    const std::uint8_t* const extradata =
        av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (extradata != nullptr) {
        cookie_ = cookieOfExtradata(context_->codec_id, std::as_bytes(std::span(extradata, size)));
    }
}

void FfmpegEncoder::append(const AVPacket& packet, EncodedPackets& packets) const {
    if (packet.size == 0) {
        return;
    }
    // Only packets of lossless codecs can be short. Packets of other codecs are padded.
    const bool isShort = isLossless(context_->codec_id) && packet.duration < context_->frame_size;
    packets.descriptions.push_back({static_cast<std::int64_t>(packets.bytes.size()),
                                    isShort ? static_cast<std::uint32_t>(packet.duration) : 0,
                                    static_cast<std::uint32_t>(packet.size)});
    const auto bytes = std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size)));
    packets.bytes.insert(packets.bytes.end(), bytes.begin(), bytes.end());
}

void FfmpegEncoder::lengthenRemainder() {
    constexpr std::uint32_t kChannelsInGroup = 2;
    constexpr std::size_t kSafeFrameCount = 16;
    if (context_->codec_id == AV_CODEC_ID_ALAC && pcmFormat_.mChannelsPerFrame > kChannelsInGroup) {
        remainder_.resize(std::max(remainder_.size(), kSafeFrameCount * pcmFormat_.mBytesPerFrame));
    }
}

void FfmpegEncoder::finish(EncodedPackets& packets) {
    if (!remainder_.empty()) {
        lengthenRemainder();
        encodePacket(remainder_, packets);
        remainder_.clear();
    }
    if (hasBegun_) {
        send(nullptr, packets);
        open();
        hasBegun_ = false;
        frameCount_ = 0;
    }
}

}  // namespace zav::detail
