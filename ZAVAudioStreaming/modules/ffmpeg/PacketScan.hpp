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

/// A file that libavformat has opened, and what that told.
struct FfmpegInput {
    std::unique_ptr<AvioFile> io;
    FormatContext context;
    AVStream* stream = nullptr;  ///< the one that is read; the context's
    Packet firstPacket;          ///< taken from the context already; null when there is none
    AudioFileTypeID fileType = 0;
    AudioStreamBasicDescription dataFormat;
    std::vector<std::byte> cookie;
};

/// All packets of a file.
struct PacketScan {
    PacketTable table;
    /// Frames that the table counts and a decoder leaves out: priming and padding.
    std::uint64_t unheardFrames = 0;
    /// Of an Ogg file, whose packets can go on from page to page.
    OggPages pages;
};

/// Finds all packets. In MP4 and CAF the header tells them; other files are gone through once.
/// Afterwards the context has nothing more to give.
PacketScan scanPackets(FfmpegInput& input);

/// The stream's next packet; null at the end of what can be read.
Packet nextPacket(FfmpegInput& input);

std::span<const std::byte> bytesOf(const AVPacket& packet);

/// Frames between two times of the stream, in its own time base.
std::uint32_t framesIn(const AVStream& stream, std::int64_t from, std::int64_t to);

/// Frames at 48 kHz in each packet of an Opus stream, by its first quarter of a megabyte; 0 when
/// they differ.
std::uint32_t commonOpusFrameCount(const FfmpegInput& input);

}  // namespace zav::detail
