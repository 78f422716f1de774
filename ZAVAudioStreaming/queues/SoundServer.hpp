#pragma once

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// The sound server, reached through libpulse (PulseAudio and PipeWire). That library would add 2
/// ms to the start of every program, so it is a module, loaded when a device is first needed
/// (`moduleTable`).
struct SoundServer {
    static constexpr const char* kModuleName = "Pulse";
    static constexpr const char* kTableName = "Server";

    /// The server's default devices, or those of the user's own settings. Lives for ever.
    QueueDevice& (*device)();

    /// As `listAudioDevices`.
    OSStatus (*listDevices)(AudioDeviceList& list);
};

}  // namespace zav::detail
