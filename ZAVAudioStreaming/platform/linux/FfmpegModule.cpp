#include "ZAVAudioStreaming/platform/linux/FfmpegModule.hpp"

#include "ZAVAudioStreaming/platform/linux/LoadModule.hpp"

namespace zav {

const FfmpegModule* ffmpegModule() {
    static const auto* const module = static_cast<const FfmpegModule*>(
        loadModule(ZAV_FFMPEG_MODULE_FILE, ZAV_FFMPEG_MODULE_ENTRY));
    return module;
}

}  // namespace zav
