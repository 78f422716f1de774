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

/// Tells the frames in a packet from the packet, for the codecs whose packets differ in that.
class PacketDuration {
 public:
    /// `usualFrames` is what packets hold that do not tell; `extradata` is the codec's.
    PacketDuration(AVCodecID codec, std::uint32_t usualFrames,
                   std::span<const std::byte> extradata);

    /// `packet` is the whole packet or its first 16 bytes. Packets are shown in their order.
    std::uint32_t frameCount(std::span<const std::byte> packet);

 private:
    AVCodecID codec_;
    std::uint32_t usualFrames_;
    VorbisModes vorbis_;
    std::uint32_t previousBlock_ = 0;  // Vorbis' samples; 0 before the first packet
};

/// The block size that a FLAC frame's header names; empty when it is no header.
std::optional<std::uint32_t> flacFrameCount(std::span<const std::byte> frame);

/// The frames that an ALAC packet names; empty when it holds the usual number.
std::optional<std::uint32_t> alacFrameCount(std::span<const std::byte> packet);

}  // namespace zav::detail
