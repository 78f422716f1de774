#pragma once

#include <memory>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// See `CompressedCodecs`.
std::unique_ptr<QueueEncoder> makeFfmpegEncoder(const AudioStreamBasicDescription& format);

/// Encodes by libavcodec, from interleaved integers of 16 bits, or of 32 for ALAC and FLAC of more.
///
///     AAC    AAC-LC without ADTS headers, 1 to 6 or 8 channels, at the codec's rates from 8 kHz
///            on, packets of 1024 frames
///     ALAC   1 to 8 channels, 16 or 24 bits, packets of 4096 frames
///     FLAC   1 to 8 channels, 16 or 24 bits, packets of any length from 16 frames on
///     Opus   mono and stereo at 8, 12, 16, 24 and 48 kHz, packets of 2.5 to 120 ms, 20 ms if
///            nothing is said
///
/// The bits are those that the record's flags or else `mBitsPerChannel` tell, 16 if nothing; 20
/// bits are encoded as 24. AAC and Opus have 64 kbit/s for each channel, and below 32 kHz 2 bits
/// for each sample.
///
/// FLAC's cookie is complete (checksum, smallest and largest packet) from `finish` to the next
/// stream's first audio.
class FfmpegEncoder : public QueueEncoder {
 public:
    /// Throws 'fmt?'.
    explicit FfmpegEncoder(const AudioStreamBasicDescription& format);

    AudioStreamBasicDescription pcmFormat() const override { return pcmFormat_; }
    AudioStreamBasicDescription streamFormat() const override { return streamFormat_; }
    std::uint32_t maximumPacketSize() const override;
    std::span<const std::byte> magicCookie() const override { return cookie_; }
    void encode(std::span<const std::byte> pcm, EncodedPackets& packets) override;
    void finish(EncodedPackets& packets) override;

 private:
    void open();
    void shortenPackets();
    void encodePacket(std::span<const std::byte> pcm, EncodedPackets& packets);
    void lengthenRemainder();
    void send(const AVFrame* frame, EncodedPackets& packets);
    void takeCookie(const AVPacket& packet);
    void append(const AVPacket& packet, EncodedPackets& packets) const;
    std::vector<std::byte> cookieOfContext() const;

    AudioStreamBasicDescription streamFormat_;
    AudioStreamBasicDescription pcmFormat_;
    std::vector<std::byte> cookie_;
    CodecContext context_;
    Resampler converter_;  // to what the codec takes; the rate stays
    Packet packet_ = makePacket();
    std::vector<std::byte> remainder_;  // PCM, less than a packet
    bool hasBegun_ = false;             // with the stream
    std::int64_t frameCount_ = 0;       // of the stream so far
};

}  // namespace zav::detail
