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

/// FFmpeg's objects in owning pointers. The objects print nothing.
namespace zav::detail {

struct FreeFormatContext {
    void operator()(AVFormatContext* context) const {
        // An opened input must be closed, any other context only freed. Neither function touches
        // our AVIOContext.
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

/// An offset that is added to the level of each message. Even the gravest message then exceeds the
/// most verbose setting of av_log, so nothing is printed.
inline constexpr int kSilence = 64;

/// A context over `pb` that prints nothing and opens no other file.
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

/// A resampler that prints nothing; null if libswresample cannot convert `from` to `to`.
Resampler makeResampler(PcmShape from, PcmShape to);

/// The default layout of this number of channels. Three channels are left, right, centre. All other
/// numbers have libavutil's default layout.
AVChannelLayout usualLayout(std::uint32_t channels);

std::span<const std::byte> extradataOf(const AVCodecParameters& parameters);
/// Copies `extradata` into the parameters. Empty extradata becomes a null pointer.
void setExtradata(AVCodecParameters& parameters, std::span<const std::byte> extradata);

}  // namespace zav::detail
