#include "ZAVAudioStreaming/platform/linux/AudioDevice.hpp"

#include <atomic>

#include "ZAVAudioStreaming/platform/linux/PulseModule.hpp"

namespace zav {
namespace {

std::atomic<AudioDevice*> replacement = nullptr;

}  // namespace

AudioDevice* audioDevice() {
    if (AudioDevice* const device = replacement) {
        return device;
    }
    const PulseModule* const module = pulseModule();
    return module == nullptr ? nullptr : &module->device();
}

void setAudioDevice(AudioDevice* device) {
    replacement = device;
}

}  // namespace zav
