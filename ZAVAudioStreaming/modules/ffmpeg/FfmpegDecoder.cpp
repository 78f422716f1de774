#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegDecoder.hpp"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "ZAVAudioStreaming/core/OpusPacket.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/LargestPacket.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/SourceDepth.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/queues/DeviceRate.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

/// FLAC's limit. ALAC has no limit, but its encoders use 4096.
constexpr std::uint32_t kMostFramesInPacket = 65535;
constexpr std::uint32_t kUsualAlacFrames = 4096;

std::uint32_t mostChannels(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_NONE:
            return 0;
        case AV_CODEC_ID_AMR_NB:
            return 1;
        case AV_CODEC_ID_MP1:
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_MP3:
            return 2;
        case AV_CODEC_ID_AC3:
            return 6;
        default:
            return 8;
    }
}

/// True if both the codec and devices have this rate, in Hz.
bool hasRate(AVCodecID codec, double rate) {
    // Three rates, their halves and quarters.
    constexpr std::array<std::uint32_t, 9> kNineRates = {8000,  11025, 12000, 16000, 22050,
                                                         24000, 32000, 44100, 48000};
    if (!isDeviceRate(rate)) {
        return false;
    }
    switch (codec) {
        case AV_CODEC_ID_AMR_NB:
            return rate == 8000;
        case AV_CODEC_ID_MP1:
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_MP3:
        case AV_CODEC_ID_AC3:
            return std::find(kNineRates.begin(), kNineRates.end(),
                             static_cast<std::uint32_t>(rate)) != kNineRates.end();
        default:
            return true;
    }
}

[[noreturn]] void refuseFormat() {
    throw StatusFailure(kAudioFormatUnsupportedDataFormatError);
}

AVCodecID requireCodec(const AudioStreamBasicDescription& format) {
    const AVCodecID codec = codecOf(format.mFormatID);
    if (avcodec_find_decoder(codec) == nullptr || !hasRate(codec, format.mSampleRate) ||
        format.mChannelsPerFrame < 1 || format.mChannelsPerFrame > mostChannels(codec) ||
        format.mFramesPerPacket > kMostFramesInPacket ||
        format.mBytesPerPacket > largestPacket(codec, format, {})) {
        refuseFormat();
    }
    return codec;
}

AVSampleFormat sampleFormatFor(AVCodecID codec, const AudioStreamBasicDescription& format) {
    constexpr std::uint32_t kShallow = 16;
    if (!isLossless(codec)) {
        return AV_SAMPLE_FMT_FLT;
    }
    return sourceDepthOf(format) == kShallow ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
}

AudioStreamBasicDescription pcmFor(AVCodecID codec, const AudioStreamBasicDescription& format) {
    return pcmDescription(sampleFormatFor(codec, format),
                          codec == AV_CODEC_ID_OPUS ? kOpusRate : format.mSampleRate,
                          format.mChannelsPerFrame);
}

/// Makes the extradata from the record. Empty if the record does not contain enough.
std::vector<std::byte> extradataOfRecord(AVCodecID codec,
                                         const AudioStreamBasicDescription& format) {
    const auto rate = static_cast<std::uint32_t>(format.mSampleRate);
    if (codec == AV_CODEC_ID_AAC) {
        return makeAudioSpecificConfig(rate, format.mChannelsPerFrame);
    }
    const std::uint32_t depth = sourceDepthOf(format);
    if (codec == AV_CODEC_ID_ALAC && sourceDepthFlag(depth) != 0) {
        const std::uint32_t frames =
            format.mFramesPerPacket != 0 ? format.mFramesPerPacket : kUsualAlacFrames;
        return extradataOfCookie(codec,
                                 makeAlacConfig(frames, depth, format.mChannelsPerFrame, rate));
    }
    return {};
}

/// Null if the codec refuses the parameters.
CodecContext openCodec(const AVCodecParameters& parameters) {
    const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
    CodecContext context = makeCodecContext(codec);
    if (avcodec_parameters_to_context(context.get(), &parameters) < 0) {
        throw std::bad_alloc();
    }
    // Otherwise a decoder that knows the priming cuts it from the first stream but not from the
    // next.
    context->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
    context->max_samples = kMostFramesInPacket;
    if (parameters.codec_id == AV_CODEC_ID_FLAC) {
        // Damaged FLAC would be played as noise. FLAC's checksum detects the damage.
        context->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    }
    const int result = avcodec_open2(context.get(), codec, nullptr);
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    return result < 0 ? nullptr : std::move(context);
}

}  // namespace

std::unique_ptr<QueueDecoder> makeFfmpegDecoder(const AudioStreamBasicDescription& format) {
    return std::make_unique<FfmpegDecoder>(format);
}

FfmpegDecoder::FfmpegDecoder(const AudioStreamBasicDescription& format)
    : format_(format),
      pcmFormat_(pcmFor(requireCodec(format), format)),
      parameters_(makeCodecParameters()),
      cutter_(codecOf(format.mFormatID), format.mBytesPerPacket),
      converter_(sampleFormatFor(codecOf(format.mFormatID), format),
                 static_cast<std::uint32_t>(pcmFormat_.mSampleRate), format.mChannelsPerFrame) {
    parameters_->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters_->codec_id = codecOf(format.mFormatID);
    parameters_->sample_rate = static_cast<int>(pcmFormat_.mSampleRate);
    parameters_->ch_layout = usualLayout(format.mChannelsPerFrame);
    setExtradata(*parameters_, extradataOfRecord(parameters_->codec_id, format));
    context_ = openCodec(*parameters_);
    if (context_ == nullptr && !hasMagicCookie(parameters_->codec_id)) {
        refuseFormat();
    }
}

std::uint32_t FfmpegDecoder::maximumPacketSize() const {
    const AVCodecID codec = parameters_->codec_id;
    return largestPacket(codec, format_, cookieOfExtradata(codec, extradataOf(*parameters_)));
}

void FfmpegDecoder::setMagicCookie(std::span<const std::byte> cookie) {
    const AVCodecID codec = parameters_->codec_id;
    if (!hasMagicCookie(codec)) {
        throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }
    std::vector<std::byte> extradata;
    try {
        extradata = extradataOfCookie(codec, cookie);
    } catch (const StatusFailure&) {
        throw StatusFailure(kAudioQueueErr_InvalidPropertyValue);
    }
    const auto config = cookieOfExtradata(codec, extradata);
    if (codec == AV_CODEC_ID_ALAC &&
        bigEndianAt(std::span(config).first(4)) > kMostFramesInPacket) {
        throw StatusFailure(kAudioQueueErr_InvalidPropertyValue);
    }
    CodecParameters parameters = makeCodecParameters();
    if (avcodec_parameters_copy(parameters.get(), parameters_.get()) < 0) {
        throw std::bad_alloc();
    }
    setExtradata(*parameters, extradata);
    CodecContext context = openCodec(*parameters);
    if (context == nullptr) {
        throw StatusFailure(kAudioQueueErr_InvalidPropertyValue);
    }
    parameters_ = std::move(parameters);
    context_ = std::move(context);
}

void FfmpegDecoder::decode(std::span<const std::byte> bytes,
                           std::span<const AudioStreamPacketDescription> descriptions,
                           std::vector<std::byte>& pcm) {
    if (descriptions.empty()) {
        cutter_.cut(bytes, [&](std::span<const std::byte> packet) { decodePacket(packet, pcm); });
    }
    for (const AudioStreamPacketDescription& place : descriptions) {
        decodePacket(
            bytes.subspan(static_cast<std::size_t>(place.mStartOffset), place.mDataByteSize), pcm);
    }
}

void FfmpegDecoder::decodePacket(std::span<const std::byte> packet, std::vector<std::byte>& pcm) {
    // libavcodec treats an empty packet as the end of the stream.
    if (context_ == nullptr || packet.empty()) {
        return;
    }
    // `packet_` does not own its bytes. So the decoder copies the bytes and adds padding.
    packet_->data = const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(packet.data()));
    packet_->size = static_cast<int>(packet.size());
    send(packet_.get(), pcm);
}

void FfmpegDecoder::send(const AVPacket* packet, std::vector<std::byte>& pcm) {
    int result = avcodec_send_packet(context_.get(), packet);
    while (result >= 0) {
        result = avcodec_receive_frame(context_.get(), frame_.get());
        if (result >= 0) {
            // The first frame of MPEG audio still has the rate with which the codec was opened.
            frame_->sample_rate = context_->sample_rate;
            converter_.append(*frame_, pcm);
        }
    }
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
}

void FfmpegDecoder::finish(std::vector<std::byte>& pcm) {
    cutter_.finish([&](std::span<const std::byte> packet) { decodePacket(packet, pcm); });
    if (context_ != nullptr) {
        send(nullptr, pcm);
    }
    converter_.finish(pcm);
    reset();
}

// Makes a new decoder, because some keep old state when they are flushed.
void FfmpegDecoder::reset() {
    cutter_.reset();
    converter_.reset();
    context_ = openCodec(*parameters_);
}

}  // namespace zav::detail
