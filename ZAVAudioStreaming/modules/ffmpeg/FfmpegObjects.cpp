#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <cstring>
#include <new>
#include <utility>

namespace zav::detail {
namespace {

// The level and the receiver of av_log belong to the whole process, so we leave them to the
// application and silence single contexts. av_log adds an integer inside a context to the level of
// the context's messages. The context's class gives the offset of that integer. AVFormatContext's
// class gives none, so we use a copy of the class whose offset is that of `opaque`, a field
// reserved for users. libavformat finds the class only through the pointer at the start of the
// context.
const AVClass* silentFormatClass() {
    static const AVClass silent = [] {
        AVClass copy = *avformat_get_class();
        copy.log_level_offset_offset = offsetof(AVFormatContext, opaque);
        return copy;
    }();
    return &silent;
}

int refuseToOpen(AVFormatContext* /*context*/, AVIOContext** /*pb*/, const char* /*url*/,
                 int /*flags*/, AVDictionary** /*options*/) {
    return AVERROR(EPERM);
}

}  // namespace

FormatContext makeFormatContext(AVIOContext* pb) {
    FormatContext context(avformat_alloc_context());
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    static_assert(sizeof(context->opaque) >= sizeof(kSilence));
    std::memcpy(&context->opaque, &kSilence, sizeof(kSilence));
    context->av_class = silentFormatClass();
    context->pb = pb;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    // A file can refer to other files (references in MP4, playlists). We never open those.
    context->io_open = refuseToOpen;
    return context;
}

Packet makePacket() {
    Packet packet(av_packet_alloc());
    if (packet == nullptr) {
        throw std::bad_alloc();
    }
    return packet;
}

Frame makeFrame() {
    Frame frame(av_frame_alloc());
    if (frame == nullptr) {
        throw std::bad_alloc();
    }
    return frame;
}

CodecParameters makeCodecParameters() {
    CodecParameters parameters(avcodec_parameters_alloc());
    if (parameters == nullptr) {
        throw std::bad_alloc();
    }
    return parameters;
}

CodecContext makeCodecContext(const AVCodec* codec) {
    CodecContext context(avcodec_alloc_context3(codec));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->log_level_offset = kSilence;
    return context;
}

Resampler makeResampler(PcmShape from, PcmShape to) {
    SwrContext* context = nullptr;
    const int result =
        swr_alloc_set_opts2(&context, &to.layout, to.sampleFormat, to.rate, &from.layout,
                            from.sampleFormat, from.rate, kSilence, nullptr);
    Resampler resampler(context);
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    return result >= 0 && swr_init(context) >= 0 ? std::move(resampler) : nullptr;
}

AVChannelLayout usualLayout(std::uint32_t channels) {
    AVChannelLayout layout = AV_CHANNEL_LAYOUT_SURROUND;
    if (channels != 3) {
        av_channel_layout_default(&layout, static_cast<int>(channels));
    }
    return layout;
}

std::span<const std::byte> extradataOf(const AVCodecParameters& parameters) {
    return std::as_bytes(
        std::span(parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)));
}

void setExtradata(AVCodecParameters& parameters, std::span<const std::byte> extradata) {
    av_freep(static_cast<void*>(&parameters.extradata));
    parameters.extradata_size = 0;
    if (extradata.empty()) {
        // Some codecs treat a pointer with size 0 as a broken cookie.
        return;
    }
    parameters.extradata =
        static_cast<std::uint8_t*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(parameters.extradata, extradata.data(), extradata.size());
    parameters.extradata_size = static_cast<int>(extradata.size());
}

}  // namespace zav::detail
