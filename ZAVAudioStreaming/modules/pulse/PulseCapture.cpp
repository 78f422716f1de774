#include "ZAVAudioStreaming/modules/pulse/PulseCapture.hpp"

#include <algorithm>
#include <span>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {
namespace {

constexpr std::size_t kSilentFrames = 1024;
constexpr pa_usec_t kFinishingTime = PA_USEC_PER_SEC;

}  // namespace

OSStatus PulseCapture::open(const AudioStreamBasicDescription& format) {
    const std::optional<PulseFormat> captured = pulseFormat(format);
    // No clock is needed: captured frames are counted as they arrive.
    return captured ? PulseStream::open(*captured, PA_STREAM_RECORD, PA_STREAM_NOFLAGS)
                    : kAudioFormatUnsupportedDataFormatError;
}

void PulseCapture::opened() {
    silence_.assign(kSilentFrames * frameBytes(), format().silence);
    kept_.reserve(pa_stream_get_buffer_attr(stream())->fragsize);
    const auto onCaptured = [](pa_stream* /*stream*/, std::size_t /*bytes*/, void* self) noexcept {
        auto* const that = static_cast<PulseCapture*>(self);
        that->assertLocked();
        that->deliver();
        that->noteSignOfLife();
    };
    pa_stream_set_read_callback(stream(), onCaptured, this);
    // Audio may have arrived before the callback was set.
    deliver();
}

void PulseCapture::finish() {
    const PulseLock lock(loop());
    if (!isLost() && !isFinished_) {
        // All captured audio arrives before the answer. None arrives after it.
        const auto onAnswer = [](pa_stream* /*stream*/, int /*success*/, void* self) noexcept {
            static_cast<PulseCapture*>(self)->connection().wake();
        };
        const PulseOperation operation(pa_stream_cork(stream(), 1, onAnswer, this));
        waitUntil(pa_rtclock_now() + kFinishingTime, [this, &operation] {
            assertLocked();
            return isLost() || operation == nullptr ||
                   pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING;
        });
        deliver();
    }
    isFinished_ = true;
}

void PulseCapture::roomAdded() {
    const PulseLock lock(loop());
    isFull_ = false;
    deliver();
}

void PulseCapture::lost() noexcept {
    client_.deviceGone();
}

void PulseCapture::deliver() {
    while (!isFull_ && !isFinished_ && !isLost()) {
        if (!pending_.empty()) {
            pending_ = pending_.subspan(client_.push(pending_));
            isFull_ = !pending_.empty();
            continue;
        }
        if (missingBytes_ > 0) {
            pending_ = std::span<const std::byte>(silence_).first(
                std::min(missingBytes_, silence_.size()));
            missingBytes_ -= pending_.size();
            continue;
        }
        const void* data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(stream(), &data, &bytes) < 0 || bytes == 0) {
            return;
        }
        if (data == nullptr) {
            missingBytes_ = bytes;
        } else {
            const std::span captured(static_cast<const std::byte*>(data), bytes);
            const auto rest = captured.subspan(client_.push(captured));
            // Copy the audio out of libpulse. Otherwise libpulse would wait for it for ever if the
            // server went away.
            kept_.assign(rest.begin(), rest.end());
            pending_ = kept_;
            isFull_ = !rest.empty();
        }
        pa_stream_drop(stream());
    }
}

}  // namespace zav::detail
