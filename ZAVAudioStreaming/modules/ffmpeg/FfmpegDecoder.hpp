#pragma once

#include <memory>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FrameConverter.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketCutter.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// See `CompressedCodecs`.
std::unique_ptr<QueueDecoder> makeFfmpegDecoder(const AudioStreamBasicDescription& format);

/// Decodes with libavcodec. Lossless codecs give 16-bit integers, or 32-bit integers if the samples
/// are deeper or their depth is unknown. All other codecs give floats. Priming is decoded like
/// other audio, because packets do not mark it.
///
/// Without a cookie, AAC is decoded as AAC-LC with the record's rate and channels, and ALAC with
/// the sample depth of the record's flags. Vorbis, ALAC without such a flag, and Opus with more
/// than two channels need a cookie. Their packets are left out until a cookie is set.
class FfmpegDecoder : public QueueDecoder {
 public:
    /// Throws 'fmt?' if libavcodec cannot decode the format.
    explicit FfmpegDecoder(const AudioStreamBasicDescription& format);

    AudioStreamBasicDescription pcmFormat() const override { return pcmFormat_; }
    std::uint32_t maximumPacketSize() const override;
    void setMagicCookie(std::span<const std::byte> cookie) override;
    void decode(std::span<const std::byte> bytes,
                std::span<const AudioStreamPacketDescription> descriptions,
                std::vector<std::byte>& pcm) override;
    void finish(std::vector<std::byte>& pcm) override;
    void reset() override;

 private:
    void decodePacket(std::span<const std::byte> packet, std::vector<std::byte>& pcm);
    void send(const AVPacket* packet, std::vector<std::byte>& pcm);

    AudioStreamBasicDescription format_;
    AudioStreamBasicDescription pcmFormat_;
    CodecParameters parameters_;  // for opening the codec
    CodecContext context_;        // null while a cookie is missing
    Packet packet_ = makePacket();
    Frame frame_ = makeFrame();
    PacketCutter cutter_;
    FrameConverter converter_;
};

}  // namespace zav::detail
