#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavcodec/codec_par.h>
}

#include <optional>
#include <span>
#include <string_view>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

/// The file types and formats that libavformat reads and writes for us, and its names for them.
namespace zav::detail {

std::span<const AudioFileTypeID> ffmpegReadableTypes();
std::span<const AudioFileTypeID> ffmpegWritableTypes();

/// The type that a demuxer reads; 0 for a demuxer that is none of ours.
AudioFileTypeID fileTypeOfDemuxer(std::string_view demuxer);

/// libavformat's muxer for a type that it writes for us; null for any other type.
const char* muxerOf(AudioFileTypeID fileType);
/// Whether audio of this codec goes into a file of this type that we write.
bool canWrite(AudioFileTypeID fileType, AVCodecID codec);

/// libavcodec's codec of a format; AV_CODEC_ID_NONE for a format that is none of ours.
AVCodecID codecOf(std::uint32_t formatID);
/// The reverse; 0 for a codec that is none of ours.
std::uint32_t formatOf(AVCodecID codec);

}  // namespace zav::detail
