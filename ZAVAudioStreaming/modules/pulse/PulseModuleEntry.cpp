#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseDevice.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseDeviceList.hpp"
#include "ZAVAudioStreaming/queues/SoundServer.hpp"

namespace {

zav::detail::QueueDevice& pulseDevice() {
    static zav::detail::PulseDevice device;
    return device;
}

}  // namespace

// The table that the module exports, found by its name.
extern "C" ZAV_EXPORT const zav::detail::SoundServer ZAV_SERVER_TABLE;

const zav::detail::SoundServer ZAV_SERVER_TABLE = {pulseDevice, zav::detail::listPulseDevices};
