#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

#include <atomic>

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/SoundServer.hpp"

namespace zav {
namespace detail {
namespace {

std::atomic<QueueDevice*> replacement = nullptr;

}  // namespace

QueueDevice* queueDevice() {
    if (QueueDevice* const device = replacement) {
        return device;
    }
    const auto* const server = moduleTable<SoundServer>();
    return server == nullptr ? nullptr : &server->device();
}

void setQueueDevice(QueueDevice* device) {
    replacement = device;
}

}  // namespace detail

OSStatus listAudioDevices(AudioDeviceList& list) {
    const auto* const server = detail::moduleTable<detail::SoundServer>();
    return server == nullptr ? kAudioQueueErr_InvalidDevice : server->listDevices(list);
}

}  // namespace zav
