#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// FFmpeg's objects in owning pointers, and what is done to every one of them.
namespace zav::detail {

struct FreeFormatContext {
    void operator()(AVFormatContext* context) const {
        // An input that was opened needs more than the free of one that never was; both functions
        // leave our AVIOContext alone.
        if (context->iformat != nullptr) {
            avformat_close_input(&context);
        } else {
            avformat_free_context(context);
        }
    }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeCodecContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeCodecParameters {
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeResampler {
    void operator()(SwrContext* resampler) const { swr_free(&resampler); }
};
struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

using FormatContext = std::unique_ptr<AVFormatContext, FreeFormatContext>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using CodecContext = std::unique_ptr<AVCodecContext, FreeCodecContext>;
using CodecParameters = std::unique_ptr<AVCodecParameters, FreeCodecParameters>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Resampler = std::unique_ptr<SwrContext, FreeResampler>;
using Parser = std::unique_ptr<AVCodecParserContext, CloseParser>;

/// Added to the level of a message, this takes even the gravest one beyond the most talkative
/// setting of av_log.
inline constexpr int kSilence = 64;

/// A context that prints nothing, with `pb` set, that opens no other file.
FormatContext makeFormatContext(AVIOContext* pb);

Packet makePacket();
Frame makeFrame();
CodecParameters makeCodecParameters();

/// A context that prints nothing. `codec` can be null.
CodecContext makeCodecContext(const AVCodec* codec);

/// One side of a conversion of PCM.
struct PcmShape {
    AVSampleFormat sampleFormat;
    int rate;  ///< in Hz
    AVChannelLayout layout;
};

/// A resampler that prints nothing; null when there is no way from one to the other.
Resampler makeResampler(PcmShape from, PcmShape to);

/// The layout that so many channels have where nothing else is told: three are left, right and
/// centre, others as libavutil thinks.
AVChannelLayout usualLayout(std::uint32_t channels);

std::span<const std::byte> extradataOf(const AVCodecParameters& parameters);
void setExtradata(AVCodecParameters& parameters, std::span<const std::byte> extradata);

}  // namespace zav::detail
