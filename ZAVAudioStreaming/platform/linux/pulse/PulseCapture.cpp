#include "ZAVAudioStreaming/platform/linux/pulse/PulseCapture.hpp"

#include <algorithm>
#include <span>

namespace zav {
namespace {

constexpr std::size_t kSilentFrames = 1024;
constexpr pa_usec_t kFinishingTime = PA_USEC_PER_SEC;

}  // namespace

void PulseCapture::opened() {
    silence_.assign(kSilentFrames * frameBytes(), format().silence);
    const auto onCaptured = [](pa_stream* /*stream*/, std::size_t /*bytes*/, void* self) noexcept {
        auto* const that = static_cast<PulseCapture*>(self);
        that->deliver();
        that->noteSignOfLife();
    };
    pa_stream_set_read_callback(stream(), onCaptured, this);
    // What came before the callback was there.
    deliver();
}

void PulseCapture::finish() {
    const PulseLock lock(connection());
    if (!isLost() && !isFinished_) {
        // Nothing comes after the answer, and everything that was captured has come before it.
        const auto onAnswer = [](pa_stream* /*stream*/, int /*success*/, void* self) noexcept {
            static_cast<PulseCapture*>(self)->connection().wake();
        };
        const PulseOperation operation(pa_stream_cork(stream(), 1, onAnswer, this));
        connection().waitUntil(pa_rtclock_now() + kFinishingTime, [this, &operation] {
            return isLost() || operation == nullptr ||
                   pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING;
        });
        deliver();
    }
    isFinished_ = true;
}

void PulseCapture::roomAdded() {
    const PulseLock lock(connection());
    isFull_ = false;
    deliver();
}

void PulseCapture::lost() noexcept {
    client_.deviceGone();
}

void PulseCapture::deliver() {
    while (!isFull_ && !isFinished_ && !isLost()) {
        const void* data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(stream(), &data, &bytes) < 0 || bytes == 0) {
            return;
        }
        if (takenBytes_ == bytes) {
            pa_stream_drop(stream());
            takenBytes_ = 0;
            continue;
        }
        const std::size_t leftBytes = bytes - takenBytes_;
        // No data is a hole: the server has lost what belongs there.
        const std::span<const std::byte> captured =
            data == nullptr
                ? std::span<const std::byte>(silence_).first(std::min(leftBytes, silence_.size()))
                : std::span(static_cast<const std::byte*>(data) + takenBytes_, leftBytes);
        const std::size_t taken = client_.push(captured);
        takenBytes_ += taken;
        isFull_ = taken < captured.size();
    }
}

}  // namespace zav
