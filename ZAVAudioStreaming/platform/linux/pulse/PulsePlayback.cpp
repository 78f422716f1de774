#include "ZAVAudioStreaming/platform/linux/pulse/PulsePlayback.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav {
namespace {

/// The timer comes so much after a mark, so that rounding does not bring it before.
constexpr pa_usec_t kMargin = PA_USEC_PER_MSEC;

}  // namespace

void PulsePlayback::opened() {
    timer_.emplace(connection(), [this] { timeIsUp(); });
    const auto onRequest = [](pa_stream* /*stream*/, std::size_t /*bytes*/, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        that->fill();
        that->noteSignOfLife();
    };
    const auto onUnderflow = [](pa_stream* stream, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        const std::int64_t byteIndex = pa_stream_get_underflow_index(stream);
        that->ranDry(byteIndex < 0 ? that->pulled_
                                   : static_cast<std::uint64_t>(byteIndex) / that->frameBytes());
        that->noteSignOfLife();
    };
    const auto onStarted = [](pa_stream* /*stream*/, void* self) noexcept {
        static_cast<PulsePlayback*>(self)->noteSignOfLife();
    };
    pa_stream_set_write_callback(stream(), onRequest, this);
    pa_stream_set_underflow_callback(stream(), onUnderflow, this);
    pa_stream_set_started_callback(stream(), onStarted, this);
}

OSStatus PulsePlayback::start() {
    const PulseLock lock(connection());
    if (isLost()) {
        return kAudioQueueErr_InvalidDevice;
    }
    isDraining_ = false;
    if (!isPlaying_) {
        isPlaying_ = true;
        silentAt_ = pa_rtclock_now() + duration(pulled_ - played_);
        fill();
        cork(false);
    }
    tell();
    return noErr;
}

OSStatus PulsePlayback::pause() {
    const PulseLock lock(connection());
    if (isLost()) {
        return kAudioQueueErr_InvalidDevice;
    }
    if (isPlaying_) {
        position();
        isPlaying_ = false;
        timer_->stop();
        cork(true);
    }
    return noErr;
}

void PulsePlayback::audioAdded() {
    const PulseLock lock(connection());
    isDraining_ = false;
    fill();
    // To set a timer wakes the device thread: not for nothing.
    if (client_.mark() != timedMark_) {
        tell();
    }
}

void PulsePlayback::drain() {
    const PulseLock lock(connection());
    isDraining_ = true;
    fill();
}

std::uint64_t PulsePlayback::framesPlayed() {
    const PulseLock lock(connection());
    return position();
}

void PulsePlayback::heard() noexcept {
    tell();
}

void PulsePlayback::lost() noexcept {
    isPlaying_ = false;
    timer_->stop();
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
        const std::size_t bytes = client_.pull({static_cast<std::byte*>(memory), room});
        if (bytes == 0) {
            pa_stream_cancel_write(stream());
        } else {
            pa_stream_write(stream(), memory, bytes, nullptr, 0, PA_SEEK_RELATIVE);
            pulled_ += bytes / frameBytes();
            isAllTaken_ = false;
        }
        if (bytes < room) {
            break;
        }
    }
    if (isDraining_ && drainedTo_ != pulled_) {
        const auto onDrained = [](pa_stream* /*stream*/, int /*success*/, void* self) noexcept {
            auto* const that = static_cast<PulsePlayback*>(self);
            that->ranDry(that->drainedTo_);
            that->noteSignOfLife();
        };
        drainedTo_ = pulled_;
        const PulseOperation operation(pa_stream_drain(stream(), onDrained, this));
    }
}

void PulsePlayback::ranDry(std::uint64_t frame) {
    if (frame >= pulled_ && !isAllTaken_) {
        silentAt_ = pa_rtclock_now() + duration(pulled_ - position());
        isAllTaken_ = true;
    }
    if (isPlaying_ && dryAt_ != frame) {
        dryAt_ = frame;
        client_.ranDry();
    }
}

void PulsePlayback::tell() {
    if (!isPlaying_) {
        return;
    }
    const std::uint64_t now = position();
    if (client_.mark() <= now) {
        client_.played(now);
    }
    timedMark_ = client_.mark();
    timedFrom_ = now;
    if (timedMark_ > limit()) {
        // Nobody can tell when: the server's next word comes first.
        timer_->stop();
        return;
    }
    pa_usec_t due = pa_rtclock_now() + duration(timedMark_ - std::min(timedMark_, now)) + kMargin;
    if (isAllTaken_) {
        due = std::min(due, std::max(silentAt_, pa_rtclock_now()));
    }
    timer_->callAt(due);
}

void PulsePlayback::timeIsUp() {
    if (position() != timedFrom_) {
        tell();
    } else {
        // The clock stands still: the timer is not set again before the server's next word.
        timedMark_ = PlaybackClient::kNoMark;
    }
}

std::uint64_t PulsePlayback::position() {
    if (!isPlaying_) {
        return played_;
    }
    pa_usec_t time = 0;
    if (isAllTaken_ && pa_rtclock_now() >= silentAt_) {
        played_ = pulled_;
    } else if (pa_stream_get_time(stream(), &time) == 0) {
        played_ = std::max(played_, std::min(frameCount(time), limit()));
    }
    return played_;
}

}  // namespace zav
