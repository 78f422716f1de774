#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/platform/linux/FfmpegModule.hpp"
#include "ZAVAudioStreaming/platform/linux/ffmpeg/FfmpegDecoder.hpp"
#include "ZAVAudioStreaming/platform/linux/ffmpeg/FfmpegEncoder.hpp"
#include "ZAVAudioStreaming/platform/linux/ffmpeg/FfmpegFileTypes.hpp"
#include "ZAVAudioStreaming/platform/linux/ffmpeg/FfmpegReader.hpp"
#include "ZAVAudioStreaming/platform/linux/ffmpeg/FfmpegWriter.hpp"

/// The one symbol that the module exports, found by its name; the build puts the version into it.
extern "C" ZAV_EXPORT const zav::FfmpegModule ZAV_MODULE_SYMBOL;

const zav::FfmpegModule ZAV_MODULE_SYMBOL = {zav::openFfmpegFile,      zav::createFfmpegFile,
                                             zav::ffmpegReadableTypes, zav::ffmpegWritableTypes,
                                             zav::makeFfmpegDecoder,   zav::makeFfmpegEncoder};
