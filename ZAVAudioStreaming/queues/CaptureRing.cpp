#include "ZAVAudioStreaming/queues/CaptureRing.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zav::detail {

CaptureRing::CaptureRing(const AudioStreamBasicDescription& pcm, std::size_t frameCapacity,
                         std::function<void()> wake)
    : bytesPerFrame_(pcm.mBytesPerFrame),
      wake_(std::move(wake)),
      ring_(bytesPerFrame_ * frameCapacity),
      meter_(pcm) {}

void CaptureRing::clear() {
    const RolePlayer device(device_);
    const RolePlayer taker(taker_);
    pushedBytes_ = 0;
    takenBytes_ = 0;
    interruptionCount_ = 0;
    meter_.clear();
    isHeldBack_ = false;
    isDeviceGone_ = false;
}

std::span<const std::byte> CaptureRing::peek() const {
    const RolePlayer taker(taker_);
    const std::uint64_t taken = takenBytes_.load(std::memory_order_relaxed);
    const std::size_t there = pushedBytes_.load(std::memory_order_acquire) - taken;
    const std::size_t start = taken % ring_.size();
    return std::span(ring_).subspan(start, std::min(there, ring_.size() - start));
}

void CaptureRing::release(std::size_t byteCount) {
    const RolePlayer taker(taker_);
    takenBytes_.fetch_add(byteCount, std::memory_order_release);
}

bool CaptureRing::wakeAt(std::size_t byteCount) {
    const RolePlayer taker(taker_);
    // Write one value, then read the other. `push` uses the same two values in the opposite order.
    // At least one side therefore sees the other's write, and no wake-up is lost.
    wakeAt_ = byteCount;
    return pushedBytes_ - takenBytes_ < byteCount;
}

bool CaptureRing::takeHeldBack() {
    const RolePlayer taker(taker_);
    const bool hasRoom = pushedBytes_ - takenBytes_ < ring_.size();
    return hasRoom && isHeldBack_.exchange(false);
}

std::size_t CaptureRing::push(std::span<const std::byte> captured) noexcept {
    const RolePlayer device(device_);
    const std::uint64_t pushed = pushedBytes_.load(std::memory_order_relaxed);
    const std::size_t used = pushed - takenBytes_.load(std::memory_order_acquire);
    const std::size_t size = std::min(captured.size(), ring_.size() - used);
    const std::size_t start = pushed % ring_.size();
    const std::size_t beforeEnd = std::min(size, ring_.size() - start);
    std::memcpy(ring_.data() + start, captured.data(), beforeEnd);
    std::memcpy(ring_.data(), captured.data() + beforeEnd, size - beforeEnd);
    pushedBytes_.store(pushed + size);
    meter_.add(captured.first(size));

    const bool isFull = size < captured.size();
    if (isFull && !isHeldBack_.exchange(true)) {
        ++interruptionCount_;
    }
    if (isFull || used + size >= wakeAt_) {
        wake_();
    }
    return size;
}

void CaptureRing::deviceGone() noexcept {
    const RolePlayer device(device_);
    isDeviceGone_ = true;
    wake_();
}

}  // namespace zav::detail
