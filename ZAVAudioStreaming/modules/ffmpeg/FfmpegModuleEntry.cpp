#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/files/CompressedFiles.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegDecoder.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegEncoder.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegReader.hpp"
#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegWriter.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"

using namespace zav::detail;

// The module exports these two tables. The library finds them by name.
extern "C" ZAV_EXPORT const CompressedFiles ZAV_FILES_TABLE;
extern "C" ZAV_EXPORT const CompressedCodecs ZAV_CODECS_TABLE;

const CompressedFiles ZAV_FILES_TABLE = {openFfmpegFile, createFfmpegFile, ffmpegReadableTypes,
                                         ffmpegWritableTypes};
const CompressedCodecs ZAV_CODECS_TABLE = {makeFfmpegDecoder, makeFfmpegEncoder};
