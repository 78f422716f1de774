#include "DevicesCommand.hpp"

#include <ZAVAudioStreaming/platform/AudioDevices.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "Failure.hpp"
#include "FormatText.hpp"
#include "LiveAudio.hpp"

namespace zavtool {
namespace {

void printJson(const zav::AudioDeviceList& list) {
    nlohmann::ordered_json devices = nlohmann::ordered_json::array();
    for (const zav::AudioDeviceInfo& device : list.devices) {
        devices.push_back({{"name", device.name},
                           {"description", device.description},
                           {"direction", device.isInput ? "input" : "output"},
                           {"isMonitor", device.isMonitor},
                           {"isUsed", device.isUsed},
                           {"sampleRate", device.sampleRate},
                           {"channels", device.channelCount}});
    }
    const nlohmann::ordered_json text = {{"server", list.server}, {"devices", devices}};
    std::printf("%s\n", text.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

void printSection(const zav::AudioDeviceList& list, bool isInput, std::size_t nameWidth) {
    std::printf("\n%s\n", isInput ? "Inputs (* zav record)" : "Outputs (* zav play)");
    const char* const variable = isInput ? "PULSE_SOURCE" : "PULSE_SINK";
    bool isEmpty = true;
    bool isAnyUsed = false;
    for (const zav::AudioDeviceInfo& device : list.devices) {
        if (device.isInput != isInput) {
            continue;
        }
        isEmpty = false;
        isAnyUsed = isAnyUsed || device.isUsed;
        std::printf("%s %-*s  %s, %s\n", device.isUsed ? "*" : " ", static_cast<int>(nameWidth),
                    shown(device.name).c_str(), channelsInWords(device.channelCount).c_str(),
                    rateInWords(device.sampleRate).c_str());
        if (device.description != device.name) {
            std::printf("    %s\n", shown(device.description).c_str());
        }
    }
    if (isEmpty) {
        std::printf("  none\n");
    }
    // zav never changes its environment, so every thread may call getenv.
    const char* const named = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
    if (!isAnyUsed && named != nullptr && *named != '\0') {
        std::printf("  %s=%s is none of them\n", variable, shown(named).c_str());
    }
}

}  // namespace

void devices(bool isJson) {
    zav::AudioDeviceList list;
    if (const zav::OSStatus status = zav::listAudioDevices(list); status != zav::noErr) {
        throw SoundServerFailure(status);
    }
    if (isJson) {
        printJson(list);
        return;
    }
    std::size_t nameWidth = 0;
    for (const zav::AudioDeviceInfo& device : list.devices) {
        nameWidth = std::max(nameWidth, shown(device.name).size());
    }
    std::printf("Server  %s\n", shown(list.server).c_str());
    printSection(list, false, nameWidth);
    printSection(list, true, nameWidth);
}

}  // namespace zavtool
