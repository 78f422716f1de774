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

/// The type that a demuxer reads; 0 if we do not use the demuxer.
AudioFileTypeID fileTypeOfDemuxer(std::string_view demuxer);

/// The name of libavformat's muxer for a type; null if the type is not in the table.
const char* muxerOf(AudioFileTypeID fileType);
/// True if we write audio of this codec into files of this type.
bool canWrite(AudioFileTypeID fileType, AVCodecID codec);

/// libavcodec's codec for a format; AV_CODEC_ID_NONE if the format is not in the table.
AVCodecID codecOf(std::uint32_t formatID);
/// The format of a codec; 0 if the codec is not in the table.
std::uint32_t formatOf(AVCodecID codec);

}  // namespace zav::detail
