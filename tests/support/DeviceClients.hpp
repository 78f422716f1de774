#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/platform/linux/AudioDevice.hpp"
#include "tests/support/Ramp.hpp"

namespace zav::test {

/// Plays a ramp of 16-bit stereo, sample by sample through both channels, as far as the test lets
/// it, and watches the device's manners.
class RampClient : public PlaybackClient {
 public:
    virtual ~RampClient() = default;
    explicit RampClient(std::uint64_t availableFrames = 0, std::uint64_t framesPerMark = 4800)
        : available(availableFrames), framesPerMark_(framesPerMark), mark_(framesPerMark) {}

    std::size_t pull(std::span<std::byte> room) noexcept override {
        const std::uint64_t from = pulled;
        const std::uint64_t count = std::min<std::uint64_t>(room.size() / 4, available - from);
        for (std::uint64_t i = 0; i < 2 * count; ++i) {
            const std::int16_t sample = rampSample(2 * from + i);
            std::memcpy(&room[i * 2], &sample, 2);
        }
        isInOrder = isInOrder && room.size() % 4 == 0 && !isGone;
        pulled = from + count;
        return count * 4;
    }

    /// The end of each piece; the end of everything is one, too.
    std::uint64_t mark() const noexcept override {
        const std::uint64_t end = available;
        return said < end ? std::min<std::uint64_t>(mark_, end) : kNoMark;
    }

    void played(std::uint64_t frameCount) noexcept override {
        isInOrder = isInOrder && frameCount >= said && frameCount <= pulled && !isGone;
        said = frameCount;
        while (mark_ <= frameCount) {
            mark_ += framesPerMark_;
        }
    }

    void ranDry(std::uint64_t /*frameCount*/) noexcept override { ++dryCount; }

    void deviceGone() noexcept override {
        isInOrder = isInOrder && !isGone;
        isGone = true;
    }

    std::atomic<std::uint64_t> available;  ///< frames that may be pulled
    std::atomic<std::uint64_t> pulled = 0;
    std::atomic<std::uint64_t> said = 0;  ///< frames said to have been played
    std::atomic<int> dryCount = 0;
    std::atomic<bool> isGone = false;
    std::atomic<bool> isInOrder = true;  ///< no call broke the contract

 private:
    const std::uint64_t framesPerMark_;
    std::atomic<std::uint64_t> mark_;
};

/// Keeps the 16-bit samples that are not silent, as many as the test makes room for.
class CollectingClient : public CaptureClient {
 public:
    explicit CollectingClient(std::size_t mostSamples) : samples_(mostSamples) {}
    virtual ~CollectingClient() = default;

    std::size_t push(std::span<const std::byte> captured) noexcept override {
        const std::size_t count = std::min<std::size_t>(captured.size() / 2, room);
        std::size_t kept = keptCount;
        for (std::size_t i = 0; i < count; ++i) {
            std::int16_t sample = 0;
            std::memcpy(&sample, &captured[i * 2], 2);
            if (sample != 0 && kept < samples_.size()) {
                samples_[kept++] = sample;
            }
        }
        keptCount = kept;
        room -= count;
        ++pushCount;
        return count * 2;
    }

    void deviceGone() noexcept override { isGone = true; }

    std::vector<std::int16_t> samples() const {
        return {samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(keptCount.load())};
    }

    std::atomic<std::size_t> room = 0;  ///< samples
    std::atomic<std::size_t> keptCount = 0;
    std::atomic<int> pushCount = 0;
    std::atomic<bool> isGone = false;

 private:
    std::vector<std::int16_t> samples_;
};

}  // namespace zav::test
