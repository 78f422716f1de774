#pragma once

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"

namespace zav::detail {

/// As `listAudioDevices`.
OSStatus listPulseDevices(AudioDeviceList& list);

}  // namespace zav::detail
