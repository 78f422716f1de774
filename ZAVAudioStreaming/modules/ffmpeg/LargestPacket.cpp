#include "ZAVAudioStreaming/modules/ffmpeg/LargestPacket.hpp"

#include "ZAVAudioStreaming/modules/ffmpeg/SourceDepth.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

constexpr std::uint32_t kMostDepth = 32;

std::uint32_t depthOf(AVCodecID codec, const AudioStreamBasicDescription& format,
                      std::span<const std::byte> cookie) {
    const std::uint32_t inCookie = sourceDepthInCookie(codec, cookie);
    const std::uint32_t depth = inCookie != 0 ? inCookie : sourceDepthOf(format);
    return depth == 0 || depth > kMostDepth ? kMostDepth : depth;
}

/// Each pair of channels has a header of 23 bits, a frame count of 32 bits, and 3 bits at the end.
std::uint32_t largestAlacPacket(const AudioStreamBasicDescription& format,
                                std::span<const std::byte> cookie) {
    constexpr std::uint32_t kUsualFrames = 4096;
    constexpr std::uint32_t kHeaderSize = 7;
    std::uint32_t frames = format.mFramesPerPacket;
    if (cookie.size() >= 4) {
        frames = static_cast<std::uint32_t>(bigEndianAt(cookie.first(4)));
    }
    frames = frames == 0 ? kUsualFrames : frames;
    const std::uint32_t channels = format.mChannelsPerFrame;
    return frames * channels * depthOf(AV_CODEC_ID_ALAC, format, cookie) / 8 +
           (channels + 1) * kHeaderSize;
}

/// RFC 9639, section 9: a frame has at most 16 bytes of header and 2 of checksum. A channel has one
/// byte of header, then its wasted bits in unary. In stereo, one channel can need one more bit for
/// each sample.
std::uint32_t largestFlacFrame(const AudioStreamBasicDescription& format,
                               std::span<const std::byte> cookie) {
    constexpr std::uint32_t kMostFrames = 65535;
    constexpr std::uint32_t kFrameHeaderAndChecksum = 18;
    constexpr std::uint32_t kChannelHeader = 1 + kMostDepth / 8;
    std::uint32_t frames = format.mFramesPerPacket;
    if (cookie.size() >= 4) {
        frames = static_cast<std::uint32_t>(bigEndianAt(cookie.subspan(2, 2)));
    }
    frames = frames == 0 ? kMostFrames : frames;
    const std::uint32_t channels = format.mChannelsPerFrame;
    const std::uint32_t bits =
        channels * depthOf(AV_CODEC_ID_FLAC, format, cookie) + (channels == 2 ? 1 : 0);
    return kFrameHeaderAndChecksum + channels * kChannelHeader + (frames * bits + 7) / 8;
}

}  // namespace

std::uint32_t largestPacket(AVCodecID codec, const AudioStreamBasicDescription& format,
                            std::span<const std::byte> cookie) {
    const std::uint32_t channels = format.mChannelsPerFrame;
    switch (codec) {
        case AV_CODEC_ID_AAC:
            // ISO/IEC 14496-3, 4.5.3.1: the decoder's input buffer has 6144 bits for each channel.
            return 6144 / 8 * channels;
        case AV_CODEC_ID_MP1:
            // 256 kbit/s at 16 kHz in slots of 4 bytes, and one padding slot (ISO/IEC 13818-3,
            // 2.4.2.3).
            return (12 * 256000 / 16000 + 1) * 4;
        case AV_CODEC_ID_MP2:
            // 384 kbit/s at 32 kHz, and one padding slot (ISO/IEC 11172-3, 2.4.2.3).
            return 144 * 384000 / 32000 + 1;
        case AV_CODEC_ID_MP3:
            // 320 kbit/s at 32 kHz, and one padding slot.
            return 144 * 320000 / 32000 + 1;
        case AV_CODEC_ID_ALAC:
            return largestAlacPacket(format, cookie);
        case AV_CODEC_ID_FLAC:
            return largestFlacFrame(format, cookie);
        case AV_CODEC_ID_OPUS:
            // RFC 7845, section 6, for each stream in the packet. One or two channels are one
            // stream.
            return 61440 * (channels <= 2 ? 1 : channels);
        case AV_CODEC_ID_AC3:
            // ETSI TS 102 366, table 4.13: 640 kbit/s at 32 kHz.
            return 1920 * 2;
        case AV_CODEC_ID_AMR_NB:
            // RFC 4867, section 5.3: a byte of header, then 244 bits at 12.2 kbit/s.
            return 1 + (244 + 7) / 8;
        default:
            // Vorbis has no bound. This is the size of the largest Ogg page (RFC 3533, section 6).
            // Packets of encoders are far smaller.
            return 65307;
    }
}

}  // namespace zav::detail
