#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstddef>
#include <memory>
#include <span>

/// FFmpeg's objects in owning pointers, and what is done to every one of them.
namespace zav {

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
struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

using FormatContext = std::unique_ptr<AVFormatContext, FreeFormatContext>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using CodecContext = std::unique_ptr<AVCodecContext, FreeCodecContext>;
using Parser = std::unique_ptr<AVCodecParserContext, CloseParser>;

/// Added to the level of a message, this takes even the gravest one beyond the most talkative
/// setting of av_log.
inline constexpr int kSilence = 64;

/// A context that prints nothing, with `pb` set, that opens no other file.
FormatContext makeFormatContext(AVIOContext* pb);

Packet makePacket();

std::span<const std::byte> extradataOf(const AVCodecParameters& parameters);
void setExtradata(AVCodecParameters& parameters, std::span<const std::byte> extradata);

}  // namespace zav
