#include "ZAVAudioStreaming/platform/linux/pulse/PulseDeviceList.hpp"

#include <cstdlib>
#include <utility>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/platform/linux/pulse/PulseConnection.hpp"

namespace zav {
namespace {

constexpr pa_usec_t kListingTime = 3 * PA_USEC_PER_SEC;

/// What the server's answers are gathered in. libpulse ends the process when memory runs out, and
/// so does this.
struct Listing {
    explicit Listing(PulseConnection& listed) : connection(listed) {}

    PulseConnection& connection;
    AudioDeviceList list;
    std::string usedSink;
    std::string usedSource;
};

std::string orEmpty(const char* text) {
    return text == nullptr ? std::string() : text;
}

void onServer(pa_context* /*context*/, const pa_server_info* info, void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        that->list.server = orEmpty(info->server_name);
        // PipeWire's name holds its version; the other one is that of the server it stands in for.
        if (that->list.server.find_first_of("0123456789") == std::string::npos) {
            that->list.server += " " + orEmpty(info->server_version);
        }
    }
    that->connection.wake();
}

template <typename Info>
AudioDeviceInfo deviceInfo(const Info& info) {
    AudioDeviceInfo device;
    device.name = orEmpty(info.name);
    device.description = orEmpty(info.description);
    device.sampleRate = info.sample_spec.rate;
    device.channelCount = info.sample_spec.channels;
    return device;
}

void onSink(pa_context* /*context*/, const pa_sink_info* info, int /*isLast*/,
            void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        AudioDeviceInfo device = deviceInfo(*info);
        device.isUsed = device.name == that->usedSink;
        that->list.devices.push_back(std::move(device));
    }
    that->connection.wake();
}

void onSource(pa_context* /*context*/, const pa_source_info* info, int /*isLast*/,
              void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        AudioDeviceInfo device = deviceInfo(*info);
        device.isInput = true;
        device.isMonitor = info->monitor_of_sink != PA_INVALID_INDEX;
        device.isUsed = device.name == that->usedSource;
        that->list.devices.push_back(std::move(device));
    }
    that->connection.wake();
}

void onUsedSink(pa_context* /*context*/, const pa_sink_info* info, int /*isLast*/,
                void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        that->usedSink = orEmpty(info->name);
    }
    that->connection.wake();
}

void onUsedSource(pa_context* /*context*/, const pa_source_info* info, int /*isLast*/,
                  void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        that->usedSource = orEmpty(info->name);
    }
    that->connection.wake();
}

/// The device of the user's setting; null, the server's default, without one. It may be a name, a
/// number or an alias: the server knows.
const char* chosenDevice(const char* variable) {
    // libpulse reads it in the same way. NOLINTNEXTLINE(concurrency-mt-unsafe)
    return std::getenv(variable);
}

}  // namespace

OSStatus listPulseDevices(AudioDeviceList& list) {
    PulseConnection connection;
    Listing listing(connection);
    const pa_usec_t deadline = pa_rtclock_now() + kListingTime;
    const PulseLock lock(connection.loop());
    if (const OSStatus status = connection.open(deadline); status != noErr) {
        return status;
    }
    pa_context* const context = connection.context();
    // Answers come in the order of the questions; those about what is used may be that there is no
    // such device.
    const PulseOperation usedSink(pa_context_get_sink_info_by_name(
        context, chosenDevice("PULSE_SINK"), onUsedSink, &listing));
    const PulseOperation usedSource(pa_context_get_source_info_by_name(
        context, chosenDevice("PULSE_SOURCE"), onUsedSource, &listing));
    const PulseOperation sinks(pa_context_get_sink_info_list(context, onSink, &listing));
    const PulseOperation sources(pa_context_get_source_info_list(context, onSource, &listing));
    const PulseOperation server(pa_context_get_server_info(context, onServer, &listing));
    connection.waitUntil(deadline, [&server] {
        return server == nullptr || pa_operation_get_state(server.get()) != PA_OPERATION_RUNNING;
    });
    const bool isComplete =
        server != nullptr && pa_operation_get_state(server.get()) == PA_OPERATION_DONE;
    // Before what the answers go to.
    connection.close();
    if (!isComplete) {
        return kAudioQueueErr_CannotStart;
    }
    list = std::move(listing.list);
    return noErr;
}

}  // namespace zav
