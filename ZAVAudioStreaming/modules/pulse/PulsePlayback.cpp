#include "ZAVAudioStreaming/modules/pulse/PulsePlayback.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

/// Delay added to the time of a mark, so that rounding cannot fire the timer early.
constexpr pa_usec_t kMargin = PA_USEC_PER_MSEC;

/// Time that the server may stand still before silence is written behind the audio.
constexpr pa_usec_t kStandstill = 100 * PA_USEC_PER_MSEC;

}  // namespace

PulsePlayback::~PulsePlayback() {
    const PulseLock lock(loop());
    markTimer_.reset();
    padTimer_.reset();
    close();
}

OSStatus PulsePlayback::open(const AudioStreamBasicDescription& format) {
    std::optional<PulseFormat> written = pulseFormat(format);
    if (!written) {
        return kAudioFormatUnsupportedDataFormatError;
    }
    wideSamples_ = wideSamples(written->sampling.format);
    if (wideSamples_ != nullptr) {
        written->sampling.format = PA_SAMPLE_S16NE;
        written->silence = {};
    }
    {
        const PulseLock lock(loop());
        positions_.emplace(written->sampling.rate);
    }
    // libpulse regularly asks the server for its timing. Between the answers, it runs its own
    // clock.
    constexpr auto kFlags = static_cast<pa_stream_flags_t>(
        PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_START_CORKED);
    return PulseStream::open(*written, PA_STREAM_PLAYBACK, kFlags);
}

void PulsePlayback::opened() {
    markTimer_.emplace(connection(), [this] {
        assertLocked();
        markIsDue();
    });
    padTimer_.emplace(connection(), [this] {
        assertLocked();
        stoodStill();
    });
    const auto onRequest = [](pa_stream* /*stream*/, std::size_t /*bytes*/, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        that->assertLocked();
        // The server has taken audio, so an earlier answer may no longer hold.
        that->askedAt_ = 0;
        that->fill();
        that->noteSignOfLife();
    };
    const auto onUnderflow = [](pa_stream* stream, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        that->assertLocked();
        const std::int64_t bytes = pa_stream_get_underflow_index(stream);
        that->ranDry(bytes < 0 ? that->positions_->written()
                               : static_cast<std::uint64_t>(bytes) / that->frameBytes());
        that->noteSignOfLife();
    };
    const auto onStarted = [](pa_stream* /*stream*/, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        that->assertLocked();
        that->isDry_ = false;
        that->noteSignOfLife();
    };
    pa_stream_set_write_callback(stream(), onRequest, this);
    pa_stream_set_underflow_callback(stream(), onUnderflow, this);
    pa_stream_set_started_callback(stream(), onStarted, this);
}

OSStatus PulsePlayback::start() {
    const PulseLock lock(loop());
    if (isLost()) {
        return kAudioQueueErr_InvalidDevice;
    }
    isDraining_ = false;
    if (!isPlaying_) {
        isPlaying_ = true;
        isEmpty_ = false;
        positions_->resume(pa_rtclock_now());
        fill();
        cork(false);
    }
    reportPlayed();
    return noErr;
}

OSStatus PulsePlayback::pause() {
    const PulseLock lock(loop());
    if (isLost()) {
        return kAudioQueueErr_InvalidDevice;
    }
    if (isPlaying_) {
        position();
        isPlaying_ = false;
        markTimer_->stop();
        padTimer_->stop();
        cork(true);
    }
    return noErr;
}

void PulsePlayback::audioAdded() {
    const PulseLock lock(loop());
    isDraining_ = false;
    isEmpty_ = false;
    fill();
    // Setting a timer wakes the device thread, so set it only for a new mark.
    if (isPlaying_ && client_.mark() != timedMark_) {
        reportPlayed();
    }
}

void PulsePlayback::drain() {
    const PulseLock lock(loop());
    isDraining_ = true;
    fill();
    pad();
}

std::uint64_t PulsePlayback::framesPlayed() {
    const PulseLock lock(loop());
    return position();
}

void PulsePlayback::heard() noexcept {
    const pa_timing_info* const timing = pa_stream_get_timing_info(stream());
    if (timing != nullptr && timing->read_index_corrupt == 0) {
        noteTaken(static_cast<std::uint64_t>(timing->read_index) / frameBytes());
    }
    reportPlayed();
}

void PulsePlayback::lost() noexcept {
    isPlaying_ = false;
    markTimer_->stop();
    padTimer_->stop();
    client_.deviceGone();
}

void PulsePlayback::fill() {
    if (!isPlaying_) {
        return;
    }
    for (;;) {
        const std::size_t wanted = pa_stream_writable_size(stream());
        if (wanted < frameBytes() || wanted == static_cast<std::size_t>(-1)) {
            return;
        }
        void* memory = nullptr;
        std::size_t room = wanted;
        if (pa_stream_begin_write(stream(), &memory, &room) < 0) {
            return;
        }
        room = std::min(room, wanted) / frameBytes() * frameBytes();
        const std::size_t bytes = pull({static_cast<std::byte*>(memory), room});
        if (bytes == 0) {
            pa_stream_cancel_write(stream());
        } else {
            pa_stream_write(stream(), memory, bytes, nullptr, 0, PA_SEEK_RELATIVE);
            positions_->addAudio(bytes / frameBytes());
        }
        if (bytes < room) {
            isEmpty_ = true;
            pad();
            return;
        }
    }
}

std::size_t PulsePlayback::pull(std::span<std::byte> room) {
    if (wideSamples_ == nullptr) {
        return client_.pull(room);
    }
    const std::size_t narrowBytes = client_.pull(room.subspan(room.size() / 2));
    widen(*wideSamples_, room, narrowBytes);
    return narrowBytes * sizeof(WideSamples::value_type);
}

void PulsePlayback::pad() {
    if (!isPlaying_ || !isEmpty_ || positions_->isAllTaken()) {
        return;
    }
    if (isDraining_ && !positions_->endsInSilence()) {
        writeSilence();
    }
    if (isDry_ || (isDraining_ && !positions_->endsInSilence())) {
        padTimer_->callAt(pa_rtclock_now() + kStandstill);
    }
}

void PulsePlayback::stoodStill() {
    if (isPlaying_ && isEmpty_ && isDry_ && !positions_->isAllTaken()) {
        positions_->expectDryBehindSilence();
        writeSilence();
    }
    pad();
}

void PulsePlayback::writeSilence() {
    // No server uses longer blocks than this.
    const std::size_t blockBytes = pa_stream_get_buffer_attr(stream())->tlength;
    const std::uint64_t enough = (blockBytes + frameBytes() - 1) / frameBytes();
    if (!positions_->beginSilence(serverPosition(), enough)) {
        return;
    }
    for (std::size_t leftBytes = blockBytes; leftBytes >= frameBytes();) {
        void* memory = nullptr;
        std::size_t bytes = leftBytes;
        if (pa_stream_begin_write(stream(), &memory, &bytes) < 0) {
            return;
        }
        bytes = std::min(bytes, leftBytes) / frameBytes() * frameBytes();
        std::fill_n(static_cast<std::byte*>(memory), bytes, format().silence);
        pa_stream_write(stream(), memory, bytes, nullptr, 0, PA_SEEK_RELATIVE);
        positions_->addSilence(bytes / frameBytes());
        leftBytes -= bytes;
    }
}

void PulsePlayback::noteTaken(std::uint64_t serverPosition) {
    position();
    positions_->noteTaken(serverPosition, pa_rtclock_now());
}

void PulsePlayback::ranDry(std::uint64_t serverPosition) {
    isDry_ = true;
    noteTaken(serverPosition);
    pad();
    if (!isPlaying_) {
        return;
    }
    if (const auto frame = positions_->noteDry(serverPosition)) {
        client_.ranDry(*frame);
    }
}

void PulsePlayback::reportPlayed() {
    if (!isPlaying_) {
        return;
    }
    const std::uint64_t now = position();
    if (client_.mark() <= now) {
        client_.played(now);
    }
    timedMark_ = client_.mark();
    timedFrom_ = now;
    if (timedMark_ > positions_->pulled()) {
        markTimer_->stop();  // unwritten audio has no known time
        return;
    }
    if (now >= positions_->limit() && !positions_->isAllTaken()) {
        // The clock has reached the end. Only the server knows whether it has taken the last frame.
        markTimer_->stop();
        if (askedAt_ != positions_->pulled()) {
            askedAt_ = positions_->pulled();
            askForTiming();
        }
        return;
    }
    const std::uint64_t framesLeft = timedMark_ - std::min(timedMark_, now);
    markTimer_->callAt(pa_rtclock_now() + positions_->duration(framesLeft) + kMargin);
}

void PulsePlayback::markIsDue() {
    const std::uint64_t now = position();
    if (now != timedFrom_ || timedMark_ <= now) {
        reportPlayed();
    } else {
        // The clock stands still. Do not set the timer again before the server sends a message.
        timedMark_ = PlaybackClient::kNoMark;
    }
}

std::uint64_t PulsePlayback::position() {
    return isPlaying_ ? positions_->update(serverPosition(), pa_rtclock_now())
                      : positions_->played();
}

std::uint64_t PulsePlayback::serverPosition() const {
    pa_usec_t time = 0;
    return pa_stream_get_time(stream(), &time) == 0 ? positions_->frameCount(time) : 0;
}

}  // namespace zav::detail
