#pragma once

#include <memory>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/AvioFile.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/OggPages.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/PacketTable.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav::detail {

/// A file that libavformat has opened, with the properties that libavformat reported.
struct FfmpegInput {
    std::unique_ptr<AvioFile> io;
    FormatContext context;
    AVStream* stream = nullptr;  ///< the one that is read; owned by the context
    Packet firstPacket;          ///< already read from the context; null if there is none
    AudioFileTypeID fileType = 0;
    AudioStreamBasicDescription dataFormat;
    std::vector<std::byte> cookie;
};

/// All packets of a file.
struct PacketScan {
    PacketTable table;
    /// Frames of priming and padding. The table includes these frames. A player leaves them out.
    std::uint64_t unheardFrames = 0;
    /// For an Ogg file, in which a packet can continue on the next page.
    OggPages pages;
};

/// Finds all packets. The headers of MP4 and CAF list them. Other files are read once from the
/// start to the end. Afterwards the context cannot be read any more.
PacketScan scanPackets(FfmpegInput& input);

/// The next packet of the stream; null at its end or at damage.
Packet nextPacket(FfmpegInput& input);

std::span<const std::byte> bytesOf(const AVPacket& packet);

/// Frames between two times in the stream's time base; 0 if `to` is before `from`.
std::uint32_t framesIn(const AVStream& stream, std::int64_t from, std::int64_t to);

/// Frames at 48 kHz in each packet of an Opus stream; 0 if they vary. Reads only the first 256 KiB.
std::uint32_t commonOpusFrameCount(const FfmpegInput& input);

}  // namespace zav::detail
