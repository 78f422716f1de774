#include "ZAVAudioStreaming/queues/CaptureRing.hpp"

#include <gtest/gtest.h>

#include <random>
#include <semaphore>
#include <thread>
#include <vector>

#include "tests/support/Formats.hpp"
#include "tests/support/Ramp.hpp"

namespace zav::test {
namespace {

using detail::CaptureRing;

constexpr std::size_t kCaptureRingFrameSize = 4;
constexpr std::size_t kCapturedFrames = 100000;

/// A device that pushes `kCapturedFrames` in pieces of every size, and waits while the ring is
/// full.
void pushAll(CaptureRing& ring, std::binary_semaphore& roomAdded) {
    std::mt19937 random(1);
    std::vector<std::byte> piece;
    for (std::size_t pushed = 0; pushed < kCapturedFrames * kCaptureRingFrameSize;) {
        const std::size_t frameCount = std::min<std::size_t>(
            1 + random() % 300, kCapturedFrames - pushed / kCaptureRingFrameSize);
        piece.resize(frameCount * kCaptureRingFrameSize);
        for (std::size_t i = 0; i < piece.size(); ++i) {
            piece[i] = rampByte(pushed + i);
        }
        const std::size_t taken = ring.push(piece);
        EXPECT_EQ(taken % kCaptureRingFrameSize, 0U);
        pushed += taken;
        if (taken < piece.size()) {
            roomAdded.acquire();
        }
    }
}

// A lost wake-up, or room that the device does not hear of, leaves both threads waiting for ever.
TEST(CaptureRing, handsEveryByteOnFromOneThreadToAnother) {
    std::binary_semaphore woken(0);
    std::binary_semaphore roomAdded(0);
    std::atomic<bool> isWoken = false;
    CaptureRing ring(pcmFormat(48000, 2), 256, [&] {
        if (!isWoken.exchange(true)) {
            woken.release();
        }
    });
    std::thread device([&] { pushAll(ring, roomAdded); });

    std::mt19937 random(2);
    std::size_t position = 0;
    while (position < kCapturedFrames * kCaptureRingFrameSize) {
        const auto captured = ring.peek();
        const std::size_t frameCount =
            std::min<std::size_t>(captured.size() / kCaptureRingFrameSize, 1 + random() % 300);
        for (std::size_t i = 0; i < frameCount * kCaptureRingFrameSize; ++i) {
            ASSERT_EQ(captured[i], rampByte(position + i)) << position + i;
        }
        ring.release(frameCount * kCaptureRingFrameSize);
        position += frameCount * kCaptureRingFrameSize;
        if (ring.takeHeldBack()) {
            roomAdded.release();
        }
        const std::size_t missing = kCapturedFrames * kCaptureRingFrameSize - position;
        const std::size_t wanted = std::min(missing, (1 + random() % 200) * kCaptureRingFrameSize);
        if (wanted > 0 && ring.wakeAt(wanted)) {
            woken.acquire();
            isWoken = false;
        }
    }
    device.join();
    EXPECT_EQ(ring.capturedFrames(), kCapturedFrames);
    EXPECT_TRUE(ring.peek().empty());
}

#ifndef NDEBUG
TEST(CaptureRingDeathTest, stopsWhenTwoThreadsTakeAtOnce) {
    detail::ThreadRole role;
    const detail::RolePlayer player(role);
    EXPECT_DEATH(std::thread([&] { const detail::RolePlayer second(role); }).join(), "isFree");
}
#endif

}  // namespace
}  // namespace zav::test
