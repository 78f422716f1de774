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

TEST(AudioQueue, aWholeDayEndsAtTheRightFrameInTheMemoryThatItBeganWith) {
    constexpr double kHours = ZAV_TEST_HOURS;
    constexpr std::size_t kSpeechRate = 16000;
    constexpr std::size_t kBufferFrames = kSpeechRate / 2;
    /// Follows the ramp.
    struct Ear {
        std::size_t frameCount = 0;
        bool hearsTheRamp = true;

        void hear(std::span<const std::byte> audio) {
            const auto samples = samplesOf(audio);
            hearsTheRamp = hearsTheRamp && samples == rampSamples(samples.size(), frameCount);
            frameCount += samples.size();
        }
    };
    VirtualDevice device;
    Ear heard;
    Ear captured;
    device.receiver = [&](std::span<const std::byte> audio) { heard.hear(audio); };
    sayRamp(device);
    std::size_t enqueuedFrames = 0;
    OutputUnderTest output(pcmFormat(kSpeechRate, 1));
    output.onReturn = [&](AudioQueueBufferRef buffer) {
        const auto samples = rampSamples(kBufferFrames, enqueuedFrames);
        enqueuedFrames += kBufferFrames;
        std::memcpy(buffer->mAudioData, samples.data(), 2 * kBufferFrames);
        buffer->mAudioDataByteSize = 2 * kBufferFrames;
        EXPECT_EQ(AudioQueueEnqueueBuffer(output.get(), buffer, 0, nullptr), noErr);
        output.forget();
    };
    InputUnderTest input(pcmFormat(kSpeechRate, 1));
    input.onReturn = [&](AudioQueueBufferRef buffer) {
        captured.hear(
            {static_cast<const std::byte*>(buffer->mAudioData), buffer->mAudioDataByteSize});
        EXPECT_EQ(AudioQueueEnqueueBuffer(input.get(), buffer, 0, nullptr), noErr);
        input.forget();
    };
    for (int i = 0; i < 3; ++i) {
        output.onReturn(output.allocate(2 * kBufferFrames));
    }
    input.enqueueNew(3, 2 * kBufferFrames);
    ASSERT_EQ(input.start(), noErr);
    ASSERT_EQ(output.start(), noErr);
    device.advance(3600, settleQueues);
    const std::size_t memoryAfterAnHour = mallinfo2().uordblks;
    device.advance((kHours - 1) * 3600, settleQueues);

    EXPECT_NEAR(input.currentFrame(), kHours * 3600 * kSpeechRate, 1);
    EXPECT_NEAR(output.currentFrame(), kHours * 3600 * kSpeechRate, 1);
    EXPECT_EQ(heard.frameCount, output.currentFrame());
    EXPECT_GE(captured.frameCount + kBufferFrames, input.currentFrame());
    EXPECT_TRUE(heard.hearsTheRamp);
    EXPECT_TRUE(captured.hearsTheRamp);
    EXPECT_LT(mallinfo2().uordblks, memoryAfterAnHour + 65536);
}

}  // namespace
}  // namespace zav::test
