#include "ZAVAudioStreaming/modules/pulse/PulsePlayback.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

/// The timer comes so much after a mark, so that rounding does not bring it before.
constexpr pa_usec_t kMargin = PA_USEC_PER_MSEC;

/// So long the server may stand still before it gets silence behind what it has.
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
    // A clock between the server's words, which are asked for regularly, to tell positions by.
    constexpr auto kFlags = static_cast<pa_stream_flags_t>(
        PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_START_CORKED);
    return PulseStream::open(*written, PA_STREAM_PLAYBACK, kFlags);
}

void PulsePlayback::opened() {
    markTimer_.emplace(connection(), [this] { timeIsUp(); });
    padTimer_.emplace(connection(), [this] { stoodStill(); });
    const auto onRequest = [](pa_stream* /*stream*/, std::size_t /*bytes*/, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        // It has taken something: the answer to what was asked before may not hold any more.
        that->askedAt_ = 0;
        that->fill();
        that->noteSignOfLife();
    };
    const auto onUnderflow = [](pa_stream* stream, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
        const std::int64_t bytes = pa_stream_get_underflow_index(stream);
        that->ranDry(bytes < 0 ? that->written_
                               : static_cast<std::uint64_t>(bytes) / that->frameBytes());
        that->noteSignOfLife();
    };
    const auto onStarted = [](pa_stream* /*stream*/, void* self) noexcept {
        auto* const that = static_cast<PulsePlayback*>(self);
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
        silentAt_ = pa_rtclock_now() + duration(pulled_ - played_);
        fill();
        cork(false);
    }
    tell();
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
    // To set a timer wakes the device thread: not for nothing.
    if (isPlaying_ && client_.mark() != timedMark_) {
        tell();
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
        hasTaken(static_cast<std::uint64_t>(timing->read_index) / frameBytes());
    }
    tell();
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
            written_ += bytes / frameBytes();
            pulled_ += bytes / frameBytes();
            isAllTaken_ = false;
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
    if (!isPlaying_ || !isEmpty_ || isAllTaken_) {
        return;
    }
    if (isDraining_ && !endsInSilence()) {
        writeSilence();
    }
    if (isDry_ || (isDraining_ && !endsInSilence())) {
        padTimer_->callAt(pa_rtclock_now() + kStandstill);
    }
}

void PulsePlayback::stoodStill() {
    if (isPlaying_ && isEmpty_ && isDry_ && !isAllTaken_) {
        if (drySaidWith_ == pulled_) {
            // That it runs dry again behind the silence is no news.
            drySaidAt_ = pulled_;
        }
        writeSilence();
    }
    pad();
}

void PulsePlayback::writeSilence() {
    const pa_buffer_attr* const sizes = pa_stream_get_buffer_attr(stream());
    if (endsInSilence()) {
        if ((lastSilence_.end - lastSilence_.begin) * frameBytes() >= sizes->tlength) {
            return;
        }
    } else if (silenceBefore_.end > serverPosition()) {
        // It sounds still, and will be over soon: the server has taken it for certain.
        return;
    } else {
        olderSilence_ += silenceBefore_.end - silenceBefore_.begin;
        silenceBefore_ = lastSilence_;
        lastSilence_ = {written_, written_};
    }
    // No server works in blocks that are longer.
    std::size_t leftBytes = sizes->tlength;
    while (leftBytes >= frameBytes()) {
        void* memory = nullptr;
        std::size_t bytes = leftBytes;
        if (pa_stream_begin_write(stream(), &memory, &bytes) < 0) {
            return;
        }
        bytes = std::min(bytes, leftBytes) / frameBytes() * frameBytes();
        std::fill_n(static_cast<std::byte*>(memory), bytes, format().silence);
        pa_stream_write(stream(), memory, bytes, nullptr, 0, PA_SEEK_RELATIVE);
        written_ += bytes / frameBytes();
        lastSilence_.end = written_;
        leftBytes -= bytes;
    }
}

void PulsePlayback::hasTaken(std::uint64_t position) {
    if (position >= audioEnd() && !isAllTaken_) {
        silentAt_ = pa_rtclock_now() + duration(pulled_ - this->position());
        isAllTaken_ = true;
    }
}

void PulsePlayback::ranDry(std::uint64_t position) {
    isDry_ = true;
    hasTaken(position);
    pad();
    const std::uint64_t frame = std::min(clientFrame(position), pulled_);
    if (isPlaying_ && drySaidAt_ != frame) {
        drySaidAt_ = frame;
        drySaidWith_ = pulled_;
        client_.ranDry(frame);
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
    if (timedMark_ > pulled_) {
        // Nobody can tell when.
        markTimer_->stop();
        return;
    }
    if (now >= limit() && !isAllTaken_) {
        // The clock has come to the end: whether that is true the server can tell.
        markTimer_->stop();
        if (askedAt_ != pulled_) {
            askedAt_ = pulled_;
            askForTiming();
        }
        return;
    }
    markTimer_->callAt(pa_rtclock_now() + duration(timedMark_ - std::min(timedMark_, now)) +
                       kMargin);
}

void PulsePlayback::timeIsUp() {
    const std::uint64_t now = position();
    if (now != timedFrom_ || timedMark_ <= now) {
        tell();
    } else {
        // The clock stands still: the timer is not set again before the server's next word.
        timedMark_ = PlaybackClient::kNoMark;
    }
}

std::uint64_t PulsePlayback::position() {
    if (isPlaying_) {
        std::uint64_t sounded = 0;
        if (isAllTaken_) {
            // libpulse's clock stands still already.
            const pa_usec_t now = pa_rtclock_now();
            sounded = pulled_ - std::min(pulled_, frameCount(silentAt_ - std::min(silentAt_, now)));
        } else {
            sounded = std::min(clientFrame(serverPosition()), limit());
        }
        played_ = std::max(played_, sounded);
    }
    return played_;
}

std::uint64_t PulsePlayback::serverPosition() const {
    pa_usec_t time = 0;
    return pa_stream_get_time(stream(), &time) == 0 ? frameCount(time) : 0;
}

std::uint64_t PulsePlayback::clientFrame(std::uint64_t position) const {
    std::uint64_t silent = olderSilence_;
    for (const Silence& silence : {silenceBefore_, lastSilence_}) {
        silent += std::clamp(position, silence.begin, silence.end) - silence.begin;
    }
    return position - std::min(position, silent);
}

}  // namespace zav::detail
