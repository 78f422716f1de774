#pragma once

#include "ZAVAudioStreaming/core/OSStatus.hpp"
#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/platform/linux/AudioDevice.hpp"

namespace zav {

/// What the module built on libpulse does for the platform layer. That library would cost every
/// program 2 ms of its start, so it stands in a module that is loaded when something is first asked
/// of a device. It reaches PulseAudio and PipeWire.
struct PulseModule {
    /// The server's default devices, or those of the user's own settings. Lives for ever.
    AudioDevice& (*device)();

    /// As `listAudioDevices`.
    OSStatus (*listDevices)(AudioDeviceList& list);
};

/// The module, loaded by the first call; null when it is not there or is of another version
/// (`loadModule`). Any thread may ask.
const PulseModule* pulseModule();

}  // namespace zav
