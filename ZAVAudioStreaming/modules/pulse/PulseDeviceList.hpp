#pragma once

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"

namespace zav::detail {

/// Does the same as `listAudioDevices`.
OSStatus listPulseDevices(AudioDeviceList& list);

}  // namespace zav::detail
