#include "LiveAudio.hpp"

#include <ZAVAudioStreaming/platform/AudioDevices.hpp>
#include <ZAVAudioStreaming/platform/OwnedAudioQueue.hpp>
#include <cstdlib>

#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"

namespace zavtool {
namespace {

/// The server and the devices that the user names by environment variables.
std::string placeInWords() {
    std::string place;
    for (const char* const name : {"PULSE_SERVER", "PULSE_SINK", "PULSE_SOURCE"}) {
        // zav never changes its environment, so every thread may call getenv.
        const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
        if (value != nullptr && *value != '\0') {
            place += (place.empty() ? " at " : ", ") + std::string(name) + "=" + shown(value);
        }
    }
    return place;
}

std::string serverProblem(zav::OSStatus status) {
    const std::string place = placeInWords();
    zav::AudioDeviceList list;
    switch (status) {
        case zav::kAudioQueueErr_InvalidDevice:
            if (zav::listAudioDevices(list) == zav::noErr) {
                if (list.devices.empty()) {
                    return "the sound server has no devices" + place +
                           "; use one that has, or add a device to this one";
                }
                return "the sound server has no such device" + place +
                       "; use one that 'zav devices' lists";
            }
            return "no sound server or no device" + place +
                   "; start PulseAudio or PipeWire (pipewire-pulse)" +
                   (place.empty() ? ", or set PULSE_SERVER" : "");
        case zav::kAudioQueueErr_CannotStart:
            return "the sound server" + place +
                   " does not answer, or refuses; use one that runs and accepts another client";
        default:
            return "the sound server" + place + " fails, status " + zav::statusText(status) +
                   "; use another one";
    }
}

}  // namespace

SoundServerFailure::SoundServerFailure(zav::OSStatus status)
    : std::runtime_error(serverProblem(status)) {}

void refuseFormat(const std::filesystem::path& file, const zav::AudioStreamBasicDescription& format,
                  const std::string& wanted) {
    const bool isPcm = format.mFormatID == zav::kAudioFormatLinearPCM;
    throw Failure(file, inWords(format) + "; use " + wanted +
                            (isPcm || canReadCompressedFiles()
                                 ? ""
                                 : " (compressed audio needs libZAVAudioStreamingFFmpeg.so beside "
                                   "the library, and FFmpeg's libraries)"));
}

std::uint32_t interruptionCount(zav::AudioQueueRef queue) {
    std::uint32_t count = 0;
    // Every queue has this property.
    static_cast<void>(
        zav::readAudioQueueProperty(queue, zav::kAudioQueueProperty_InterruptionCount, count));
    return count;
}

}  // namespace zavtool
