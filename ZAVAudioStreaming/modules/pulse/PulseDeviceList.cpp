#include "ZAVAudioStreaming/modules/pulse/PulseDeviceList.hpp"

#include <string>
#include <utility>

#include "ZAVAudioStreaming/modules/pulse/PulseConnection.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

constexpr pa_usec_t kListingTime = 3 * PA_USEC_PER_SEC;

/// Collects the server's answers. Running out of memory ends the process, as it does in libpulse.
struct Listing {
    explicit Listing(PulseConnection& listed) : connection(listed) {}

    PulseConnection& connection;
    AudioDeviceList list;
};

std::string orEmpty(const char* text) {
    return text == nullptr ? std::string() : text;
}

void onServer(pa_context* /*context*/, const pa_server_info* info, void* listing) noexcept {
    auto* const that = static_cast<Listing*>(listing);
    if (info != nullptr) {
        that->list.server = orEmpty(info->server_name);
        // PipeWire's name contains its version. Its version field contains a version of PulseAudio.
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
        that->list.devices.push_back(deviceInfo(*info));
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
        that->list.devices.push_back(std::move(device));
    }
    that->connection.wake();
}

/// Opens a stream as a queue does, to learn which device the server uses for it. The settings of
/// the user, of libpulse and of the server decide this together. The stream is corked, so nothing
/// sounds and no device wakes up. Returns null if the stream cannot be made.
PulseStreamObject openProbe(PulseConnection& connection, pa_stream_direction_t direction)
    ZAV_REQUIRES(connection.loop()) {
    constexpr pa_sample_spec kSpec = {PA_SAMPLE_S16NE, 48000, 2};
    constexpr auto kFlags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED |
                                                           PA_STREAM_DONT_INHIBIT_AUTO_SUSPEND);
    PulseStreamObject stream(
        pa_stream_new(connection.context(), "ZAVAudioStreaming", &kSpec, nullptr));
    if (stream == nullptr) {
        return nullptr;
    }
    const auto onState = [](pa_stream* /*stream*/, void* waiting) noexcept {
        static_cast<PulseConnection*>(waiting)->wake();
    };
    pa_stream_set_state_callback(stream.get(), onState, &connection);
    const int result =
        direction == PA_STREAM_PLAYBACK
            ? pa_stream_connect_playback(stream.get(), nullptr, nullptr, kFlags, nullptr, nullptr)
            : pa_stream_connect_record(stream.get(), nullptr, nullptr, kFlags);
    return result < 0 ? nullptr : std::move(stream);
}

bool isSettled(const PulseStreamObject& probe) {
    return probe == nullptr || pa_stream_get_state(probe.get()) != PA_STREAM_CREATING;
}

/// Returns an empty string if the stream could not be opened.
std::string deviceOf(const PulseStreamObject& probe) {
    return probe != nullptr && pa_stream_get_state(probe.get()) == PA_STREAM_READY
               ? orEmpty(pa_stream_get_device_name(probe.get()))
               : std::string();
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
    const PulseStreamObject playback = openProbe(connection, PA_STREAM_PLAYBACK);
    const PulseStreamObject capture = openProbe(connection, PA_STREAM_RECORD);
    const PulseOperation sinks(pa_context_get_sink_info_list(context, onSink, &listing));
    const PulseOperation sources(pa_context_get_source_info_list(context, onSource, &listing));
    const PulseOperation server(pa_context_get_server_info(context, onServer, &listing));
    // Answers arrive in the order of the requests. A stream that is not opened in time has no
    // device, because a queue could not open one either.
    connection.waitUntil(deadline, [&] {
        return server == nullptr ||
               pa_operation_get_state(server.get()) == PA_OPERATION_CANCELLED ||
               (pa_operation_get_state(server.get()) == PA_OPERATION_DONE && isSettled(playback) &&
                isSettled(capture));
    });
    const bool isComplete =
        server != nullptr && pa_operation_get_state(server.get()) == PA_OPERATION_DONE;
    const std::string played = deviceOf(playback);
    const std::string captured = deviceOf(capture);
    for (AudioDeviceInfo& device : listing.list.devices) {
        device.isUsed = device.name == (device.isInput ? captured : played);
    }
    // Close before `listing` is destroyed, because answers are written to `listing`.
    connection.close();
    if (!isComplete) {
        return kAudioQueueErr_CannotStart;
    }
    list = std::move(listing.list);
    return noErr;
}

}  // namespace zav::detail
