#pragma once

#include <memory>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FrameResampler.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketCutter.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// See `CompressedCodecs`.
std::unique_ptr<QueueDecoder> makeFfmpegDecoder(const AudioStreamBasicDescription& format);

/// Decodes by libavcodec: lossless codecs to integers of 16 bits, or of 32 when that is not known
/// to be enough, all others to floats. Priming is audio like all other, as packets do not tell of
/// it.
///
/// Without a cookie, AAC is taken for AAC-LC of the record's rate and channels, and ALAC needs the
/// record to tell the depth of its samples. The packets of ALAC without that, of Vorbis, and of
/// Opus with more than two channels are left out until a cookie is set.
class FfmpegDecoder : public QueueDecoder {
 public:
    /// Throws 'fmt?'.
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
    CodecParameters parameters_;  // what the codec is opened with
    CodecContext context_;        // null while it lacks a cookie
    Packet packet_ = makePacket();
    Frame frame_ = makeFrame();
    PacketCutter cutter_;
    FrameResampler converter_;
};

}  // namespace zav::detail
