#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "ZAVAudioStreaming/modules/ffmpeg/VorbisModes.hpp"

namespace zav::detail {

/// Computes the frames in a packet from the packet itself, for codecs whose packets vary in
/// duration.
class PacketDuration {
 public:
    /// `usualFrames` is the duration, in frames, of packets that do not contain a duration.
    /// `extradata` is libavcodec's.
    PacketDuration(AVCodecID codec, std::uint32_t usualFrames,
                   std::span<const std::byte> extradata);

    /// `packet` is the whole packet or its first 16 bytes. Packets must be passed in their order.
    std::uint32_t frameCount(std::span<const std::byte> packet);

 private:
    AVCodecID codec_;
    std::uint32_t usualFrames_;
    VorbisModes vorbis_;
    std::uint32_t previousBlock_ = 0;  // Vorbis' block size in frames; 0 before the first packet
};

/// The block size in the header of a FLAC frame, in frames; empty if it is not a header.
std::optional<std::uint32_t> flacFrameCount(std::span<const std::byte> frame);

/// The number of frames in the header of an ALAC packet; empty if it has the usual number.
std::optional<std::uint32_t> alacFrameCount(std::span<const std::byte> packet);

}  // namespace zav::detail
