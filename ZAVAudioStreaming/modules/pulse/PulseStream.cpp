#include "ZAVAudioStreaming/modules/pulse/PulseStream.hpp"

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

constexpr pa_usec_t kOpeningTime = 3 * PA_USEC_PER_SEC;
constexpr pa_usec_t kSilenceTime = 2 * PA_USEC_PER_SEC;
constexpr pa_usec_t kLatency = 100 * PA_USEC_PER_MSEC;
constexpr std::uint32_t kServersChoice = static_cast<std::uint32_t>(-1);

pa_buffer_attr bufferSizes(const pa_sample_spec& sampling) {
    const std::size_t frameBytes = pa_frame_size(&sampling);
    const std::size_t latency = pa_usec_to_bytes(kLatency, &sampling);
    pa_buffer_attr sizes{};
    sizes.maxlength = kServersChoice;
    sizes.tlength = static_cast<std::uint32_t>(latency);
    // With one frame, the server starts to play at the first frame. When it runs dry, it stands
    // still and later continues exactly there. With 0, its clock would run on, and it would drop
    // late audio.
    sizes.prebuf = static_cast<std::uint32_t>(frameBytes);
    // The device gets (tlength - 2 minreq) / 2 of the latency. Small requests give the device
    // longer blocks, so both sides wake less often.
    sizes.minreq = static_cast<std::uint32_t>(latency / 20 / frameBytes * frameBytes);
    sizes.fragsize = static_cast<std::uint32_t>(latency);
    return sizes;
}

}  // namespace

OSStatus PulseStream::open(const PulseFormat& format, pa_stream_direction_t direction,
                           pa_stream_flags_t moreFlags) {
    format_ = format;
    frameBytes_ = pa_frame_size(&format_.sampling);
    const pa_usec_t deadline = pa_rtclock_now() + kOpeningTime;
    const PulseLock lock(loop());
    if (const OSStatus status = connection_.open(deadline); status != noErr) {
        return status;
    }
    stream_.reset(
        pa_stream_new(connection_.context(), "ZAVAudioStreaming", &format_.sampling, &format_.map));
    if (stream_ == nullptr) {
        return connection_.status();
    }
    pa_stream_set_state_callback(stream(), onState, this);
    pa_stream_set_latency_update_callback(stream(), onMessage, this);
    pa_stream_set_moved_callback(stream(), onMessage, this);
    pa_stream_set_suspended_callback(stream(), onMessage, this);
    const pa_buffer_attr sizes = bufferSizes(format_.sampling);
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | moreFlags);
    // Pass no device name. libpulse then uses the server's default, or the device in the user's
    // settings.
    const int result =
        direction == PA_STREAM_PLAYBACK
            ? pa_stream_connect_playback(stream(), nullptr, &sizes, flags, nullptr, nullptr)
            : pa_stream_connect_record(stream(), nullptr, &sizes, flags);
    if (result < 0) {
        return connection_.status();
    }
    const bool isSettled = connection_.waitUntil(deadline, [this] {
        assertLocked();
        return pa_stream_get_state(stream()) != PA_STREAM_CREATING;
    });
    if (!isSettled) {
        return kAudioQueueErr_CannotStart;
    }
    if (pa_stream_get_state(stream()) != PA_STREAM_READY) {
        return connection_.status();
    }
    watchdog_.emplace(connection_, [this] {
        assertLocked();
        watch();
    });
    lastHeard_ = pa_rtclock_now();
    watchdog_->callAt(lastHeard_ + kSilenceTime);
    opened();
    isOpen_ = true;
    return noErr;
}

void PulseStream::close() {
    watchdog_.reset();
    stream_.reset();
    connection_.close();
}

void PulseStream::noteSignOfLife() {
    lastHeard_ = pa_rtclock_now();
    isAsked_ = false;
    if (isOpen_ && !isLost_) {
        heard();
    }
}

void PulseStream::cork(bool isCorked) {
    // The server keeps the order of requests, so there is no need to wait for the answer.
    const PulseOperation operation(pa_stream_cork(stream(), isCorked ? 1 : 0, nullptr, nullptr));
}

void PulseStream::askForTiming() {
    const PulseOperation operation(pa_stream_update_timing_info(stream(), nullptr, nullptr));
}

void PulseStream::onState(pa_stream* stream, void* self) noexcept {
    auto* const that = static_cast<PulseStream*>(self);
    that->assertLocked();
    if (that->isOpen_ && !PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        that->lose();
    }
    that->connection_.wake();
}

void PulseStream::onMessage(pa_stream* /*stream*/, void* self) noexcept {
    auto* const that = static_cast<PulseStream*>(self);
    that->assertLocked();
    that->noteSignOfLife();
}

void PulseStream::watch() {
    const pa_usec_t now = pa_rtclock_now();
    if (now < lastHeard_ + kSilenceTime) {
        watchdog_->callAt(lastHeard_ + kSilenceTime);
        return;
    }
    if (isAsked_) {
        lose();
        return;
    }
    // Ask before the server counts as gone, because this process itself may have stood still.
    isAsked_ = true;
    askForTiming();
    watchdog_->callAt(now + kSilenceTime);
}

void PulseStream::lose() {
    if (!isLost_) {
        isLost_ = true;
        watchdog_->stop();
        lost();
        connection_.wake();
    }
}

}  // namespace zav::detail
