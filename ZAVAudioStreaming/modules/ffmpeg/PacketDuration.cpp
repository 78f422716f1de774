#include "ZAVAudioStreaming/modules/ffmpeg/PacketDuration.hpp"

#include <algorithm>
#include <bit>

#include "ZAVAudioStreaming/core/OpusPacket.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {

std::optional<std::uint32_t> flacFrameCount(std::span<const std::byte> frame) {
    // RFC 9639, section 9.1: sync, codes of block size and rate, channels and bits, the frame's
    // number coded like UTF-8, then the block size if its code is 6 or 7.
    constexpr std::size_t kNumberOffset = 4;
    if (frame.size() <= kNumberOffset || bigEndianAt(frame.first(2)) >> 2U != 0xFFF8U >> 2U) {
        return std::nullopt;
    }
    const auto code = std::to_integer<std::uint32_t>(frame[2]) >> 4U;
    if (code == 0) {
        return std::nullopt;
    }
    if (code == 1) {
        return 192;
    }
    if (code <= 5) {
        return 576U << (code - 2);
    }
    if (code >= 8) {
        return 256U << (code - 8);
    }
    const auto first = std::to_integer<unsigned char>(frame[kNumberOffset]);
    const auto numberSize = static_cast<std::size_t>(std::max(1, std::countl_one(first)));
    const std::size_t size = code == 6 ? 1 : 2;
    if (frame.size() < kNumberOffset + numberSize + size) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(
               bigEndianAt(frame.subspan(kNumberOffset + numberSize, size))) +
           1;
}

std::optional<std::uint32_t> alacFrameCount(std::span<const std::byte> packet) {
    // The first element: 3 bits of kind, 4 of instance, 12 unused, 1 bit that is set if the number
    // of frames follows, 3 bits of other fields, then 32 bits of that number.
    constexpr std::size_t kBytes = 8;
    if (packet.size() < kBytes) {
        return std::nullopt;
    }
    const std::uint64_t bits = bigEndianAt(packet.first(kBytes));
    if ((bits >> 44U & 1U) == 0) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(bits >> 9U);
}

PacketDuration::PacketDuration(AVCodecID codec, std::uint32_t usualFrames,
                               std::span<const std::byte> extradata)
    : codec_(codec),
      usualFrames_(usualFrames),
      vorbis_(codec == AV_CODEC_ID_VORBIS ? extradata : std::span<const std::byte>()) {}

std::uint32_t PacketDuration::frameCount(std::span<const std::byte> packet) {
    switch (codec_) {
        case AV_CODEC_ID_OPUS:
            return opusFrameCount(packet);
        case AV_CODEC_ID_FLAC:
            return flacFrameCount(packet).value_or(usualFrames_);
        case AV_CODEC_ID_ALAC: {
            const std::uint32_t frames = alacFrameCount(packet).value_or(usualFrames_);
            return frames > usualFrames_ ? usualFrames_ : frames;
        }
        case AV_CODEC_ID_VORBIS: {
            // Each packet completes the overlap with the previous packet. So the first packet gives
            // no frames.
            const std::uint32_t block = vorbis_.blockSize(packet);
            const std::uint32_t frames = previousBlock_ == 0 ? 0 : (previousBlock_ + block) / 4;
            previousBlock_ = block;
            return frames;
        }
        default:
            return usualFrames_;
    }
}

}  // namespace zav::detail
