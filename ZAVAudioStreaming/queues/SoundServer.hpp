#pragma once

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// The sound server, reached through libpulse (PulseAudio and PipeWire). libpulse would add 2 ms to
/// the start of every program. It is therefore used in a module, which is loaded when a device is
/// first needed (`moduleTable`).
struct SoundServer {
    static constexpr const char* kModuleName = "Pulse";
    static constexpr const char* kTableName = "Server";

    /// Returns the server's default devices, or the devices in the user's own settings. The object
    /// lives as long as the process.
    QueueDevice& (*device)();

    /// Does the same as `listAudioDevices`.
    OSStatus (*listDevices)(AudioDeviceList& list);
};

}  // namespace zav::detail
