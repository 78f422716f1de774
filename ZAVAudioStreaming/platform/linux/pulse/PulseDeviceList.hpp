#pragma once

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"

namespace zav {

/// As `listAudioDevices`.
OSStatus listPulseDevices(AudioDeviceList& list);

}  // namespace zav
