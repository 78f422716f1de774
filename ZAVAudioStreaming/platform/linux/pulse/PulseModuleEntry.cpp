#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/platform/linux/PulseModule.hpp"
#include "ZAVAudioStreaming/platform/linux/pulse/PulseDevice.hpp"
#include "ZAVAudioStreaming/platform/linux/pulse/PulseDeviceList.hpp"

namespace {

zav::AudioDevice& pulseDevice() {
    static zav::PulseDevice device;
    return device;
}

}  // namespace

/// The one symbol that the module exports, found by its name; the build puts the version into it.
extern "C" ZAV_EXPORT const zav::PulseModule ZAV_MODULE_SYMBOL;

const zav::PulseModule ZAV_MODULE_SYMBOL = {pulseDevice, zav::listPulseDevices};
