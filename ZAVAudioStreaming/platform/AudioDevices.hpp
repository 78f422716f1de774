#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/Export.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// Which devices there are, to show them to a user. Our own interface: the platform has another for
/// this, far wider, of which nodes need nothing.
namespace zav {

/// A device that plays or captures.
struct AudioDeviceInfo {
    std::string name;         ///< what the user's settings call it
    std::string description;  ///< for people, in their language
    bool isInput = false;
    bool isMonitor = false;  ///< an input that hears what an output plays
    bool isUsed = false;     ///< what a queue that is started now opens
    double sampleRate = 0;   ///< frames per second that it works at
    std::uint32_t channelCount = 0;
};

/// What a sound server offers.
struct AudioDeviceList {
    std::string server;  ///< its name and version
    std::vector<AudioDeviceInfo> devices;
};

/// Fills `list`. Waits for the server, three seconds at most.
///
/// Errors: -66680 (kAudioQueueErr_InvalidDevice) no sound server, -66681
/// (kAudioQueueErr_CannotStart) it does not answer; `list` is as it was. Throws std::bad_alloc.
/// Threads: any.
[[nodiscard]] ZAV_EXPORT OSStatus listAudioDevices(AudioDeviceList& list);

}  // namespace zav
