#include "ZAVAudioStreaming/platform/AudioDevices.hpp"

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/platform/linux/PulseModule.hpp"

namespace zav {

OSStatus listAudioDevices(AudioDeviceList& list) {
    const PulseModule* const module = pulseModule();
    return module == nullptr ? kAudioQueueErr_InvalidDevice : module->listDevices(list);
}

}  // namespace zav
