#include "ZAVAudioStreaming/platform/linux/PulseModule.hpp"

#include "ZAVAudioStreaming/platform/linux/LoadModule.hpp"

namespace zav {

const PulseModule* pulseModule() {
    static const auto* const module =
        static_cast<const PulseModule*>(loadModule(ZAV_PULSE_MODULE_FILE, ZAV_PULSE_MODULE_ENTRY));
    return module;
}

}  // namespace zav
