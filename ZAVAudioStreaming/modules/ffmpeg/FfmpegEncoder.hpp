#pragma once

#include <memory>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// See `CompressedCodecs`.
std::unique_ptr<QueueEncoder> makeFfmpegEncoder(const AudioStreamBasicDescription& format);

/// Encodes with libavcodec, from interleaved 16-bit integers, or 32-bit integers for deeper ALAC
/// and FLAC.
///
///     AAC    AAC-LC without ADTS headers, 1 to 6 or 8 channels, the codec's rates from 8 kHz up,
///            packets of 1024 frames
///     ALAC   1 to 8 channels, 16 or 24 bits, packets of 4096 frames
///     FLAC   1 to 8 channels, 16 or 24 bits, packets of 16 to 65535 frames
///     Opus   mono and stereo at 8, 12, 16, 24 and 48 kHz, packets of 2.5 to 120 ms (default:
///            20 ms)
///
/// For ALAC and FLAC, the record's flags give the bits of a sample. Without such a flag,
/// `mBitsPerChannel` does. If that is 0, a sample has 16 bits. Samples of 20 bits are encoded as 24
/// bits. AAC and Opus use 64 kbit/s for each channel. Below 32 kHz they use 2 bits for each sample.
///
/// FLAC's cookie is complete (checksum, smallest and largest packet) between `finish` and the first
/// audio of the next stream.
class FfmpegEncoder : public QueueEncoder {
 public:
    /// Throws 'fmt?' if the format cannot be encoded.
    explicit FfmpegEncoder(const AudioStreamBasicDescription& format);

    AudioStreamBasicDescription pcmFormat() const override { return pcmFormat_; }
    AudioStreamBasicDescription streamFormat() const override { return streamFormat_; }
    std::uint32_t maximumPacketSize() const override;
    std::span<const std::byte> magicCookie() const override { return cookie_; }
    void encode(std::span<const std::byte> pcm, EncodedPackets& packets) override;
    void finish(EncodedPackets& packets) override;

 private:
    void open();
    /// Halves the duration of FLAC packets until half a second of packets fits into 4 GiB. Each
    /// packet counts as one frame here, because callers compute their buffer sizes in that way, in
    /// 32 bits.
    void shortenPackets();
    void encodePacket(std::span<const std::byte> pcm, EncodedPackets& packets);
    /// Pads a short last packet of ALAC if the stream has more than two channels. libavcodec 5.1
    /// reserves room for the header of one channel group only, and aborts on a packet of a few
    /// frames with several groups.
    void lengthenRemainder();
    void send(const AVFrame* frame, EncodedPackets& packets);
    /// Takes the final cookie from FLAC's last packet, which has no audio. At the end, the
    /// extradata of the context itself is no longer valid.
    void takeCookie(const AVPacket& packet);
    void append(const AVPacket& packet, EncodedPackets& packets) const;
    std::vector<std::byte> cookieOfContext() const;

    AudioStreamBasicDescription streamFormat_;
    AudioStreamBasicDescription pcmFormat_;
    std::vector<std::byte> cookie_;
    CodecContext context_;
    Resampler converter_;  // to the sample format of the codec, at the same rate
    Packet packet_ = makePacket();
    std::vector<std::byte> remainder_;  // PCM of less than a packet
    bool hasBegun_ = false;             // the stream has audio
    std::int64_t frameCount_ = 0;       // frames of the stream so far
};

}  // namespace zav::detail
