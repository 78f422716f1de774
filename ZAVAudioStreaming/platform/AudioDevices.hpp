#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// Lists the devices, for display to a user. An interface of our own.
namespace zav {

/// A device that plays or captures.
struct AudioDeviceInfo {
    std::string name;         ///< its name in the user's settings
    std::string description;  ///< readable text in the user's language
    bool isInput = false;
    bool isMonitor = false;  ///< an input that captures what an output plays
    bool isUsed = false;     ///< the device that a queue would open now
    double sampleRate = 0;   ///< frames per second
    std::uint32_t channelCount = 0;
};

/// The devices of a sound server.
struct AudioDeviceList {
    std::string server;  ///< its name and version
    std::vector<AudioDeviceInfo> devices;
};

/// Fills `list`. Waits for the server, for three seconds at most.
///
/// Errors: -66680 (kAudioQueueErr_InvalidDevice) no sound server, -66681
/// (kAudioQueueErr_CannotStart) it does not answer. `list` is unchanged after an error. Throws
/// std::bad_alloc. Threads: any.
[[nodiscard]] ZAV_EXPORT OSStatus listAudioDevices(AudioDeviceList& list);

}  // namespace zav
