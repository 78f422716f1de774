// What audio queues do over time on the virtual device: audio that waits for a late application,
// and a stream of many hours.

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <span>
#include <utility>

#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/Ramp.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

/// A microphone that says the ramp over and over.
void sayRamp(VirtualDevice& device) {
    const auto ramp = rampSamples(kRampLength);
    device.speakRepeatedly(std::as_bytes(std::span(ramp)));
}

TEST(AudioQueue, holdsAudioBackForAnApplicationThatIsLateWithItsBuffers) {
    VirtualDevice device;
    sayRamp(device);
    InputUnderTest queue(pcmFormat(8000, 1));
    queue.enqueueNew(1, 1600);
    ASSERT_EQ(queue.start(), noErr);
    device.advance(3, settleQueues);
    EXPECT_EQ(queue.returnCount(), 1U);
    EXPECT_EQ(queue.interruptionCount(), 1U);
    // The buffers have room for 23200 of the 28000 frames captured in 3.5 s.
    queue.enqueueNew(28, 1600);
    device.advance(0.5, settleQueues);
    ASSERT_EQ(queue.stop(true), noErr);
    settleQueues();
    EXPECT_EQ(samplesOf(queue.captured()), rampSamples(23200));
}

TEST(AudioQueue, aStopCapturesWhatTheDeviceHeldBackForALateCallback) {
    VirtualDevice device;
    sayRamp(device);
    std::promise<void> entered;
    std::promise<void> mayLeave;
    InputUnderTest queue(pcmFormat(8000, 1));
    queue.onReturn = [&, isFirst = true](AudioQueueBufferRef) mutable {
        if (std::exchange(isFirst, false)) {
            entered.set_value();
            mayLeave.get_future().wait();
        }
    };
    queue.enqueueNew(1, 1600);
    queue.enqueueNew(1, 80000);
    ASSERT_EQ(queue.start(), noErr);
    device.advance(0.1);
    entered.get_future().wait();
    device.advance(3);
    ASSERT_EQ(queue.stop(true), noErr);
    mayLeave.set_value();
    settleQueues();
    EXPECT_EQ(samplesOf(queue.captured()), rampSamples(24800));
}

TEST(AudioQueue, moreBytesThan32BitsCountEndAtTheRightFrameInTheMemoryThatTheyBeganWith) {
    // The format with the most bytes a second: 2^32 of them in less than twelve minutes.
    constexpr double kHighestRate = 192000;
    constexpr double kSeconds = 720;
    const auto format = pcmFormat(kHighestRate, 8, 32);
    // Ten whole ramps, so that all buffers hold the same bytes.
    const auto ramps = rampSamples(300000);
    const auto audio = std::as_bytes(std::span(ramps));
    /// Follows the ramp.
    struct Ear {
        std::span<const std::byte> ramps;
        std::uint64_t byteCount = 0;
        bool hearsTheRamp = true;

        void hear(std::span<const std::byte> heard) {
            while (!heard.empty()) {
                const auto wanted = ramps.subspan(byteCount % ramps.size());
                const std::size_t size = std::min(wanted.size(), heard.size());
                hearsTheRamp &= std::memcmp(wanted.data(), heard.data(), size) == 0;
                byteCount += size;
                heard = heard.subspan(size);
            }
        }
    };
    VirtualDevice device;
    Ear heard{audio};
    Ear captured{audio};
    device.receiver = [&](std::span<const std::byte> bytes) { heard.hear(bytes); };
    device.speakRepeatedly(audio);
    OutputUnderTest output(format);
    output.onReturn = [&](AudioQueueBufferRef buffer) {
        output.enqueueFull(buffer);
        output.forget();
    };
    InputUnderTest input(format);
    input.onReturn = [&](AudioQueueBufferRef buffer) {
        captured.hear(
            {static_cast<const std::byte*>(buffer->mAudioData), buffer->mAudioDataByteSize});
        input.enqueueFull(buffer);
        input.forget();
    };
    for (int i = 0; i < 3; ++i) {
        output.enqueue(audio.data(), audio.size());
    }
    input.enqueueNew(3, static_cast<std::uint32_t>(audio.size()));
    ASSERT_EQ(input.start(), noErr);
    ASSERT_EQ(output.start(), noErr);
    device.advance(60, settleQueues);
    const std::size_t memoryAfterAMinute = mallinfo2().uordblks;
    device.advance(kSeconds - 60, settleQueues);

    EXPECT_NEAR(input.currentFrame(), kSeconds * kHighestRate, 1);
    EXPECT_NEAR(output.currentFrame(), kSeconds * kHighestRate, 1);
    EXPECT_EQ(heard.byteCount, output.currentFrame() * format.mBytesPerFrame);
    EXPECT_GE(captured.byteCount + audio.size(), input.currentFrame() * format.mBytesPerFrame);
    EXPECT_TRUE(heard.hearsTheRamp);
    EXPECT_TRUE(captured.hearsTheRamp);
    EXPECT_LT(mallinfo2().uordblks, memoryAfterAMinute + 4096);
}

}  // namespace
}  // namespace zav::test
