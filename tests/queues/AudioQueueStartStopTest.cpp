// Starts, stops and the end of a run of audio queues, on the virtual device: cases that need a
// device which fails or stalls at a chosen moment. AudioQueueContractTest.cpp has those that every
// device can show.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/MonoPcm.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/VirtualDevice.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

TEST(AudioQueue, aStartThatFailsLosesNothing) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    queue.enqueue(std::vector<std::int16_t>(4800, 5));
    device.unplug();
    EXPECT_EQ(queue.start(), kAudioQueueErr_InvalidDevice);
    device.plugIn();
    device.openingStatus = kAudioQueueErr_CannotStart;
    EXPECT_EQ(queue.start(), kAudioQueueErr_CannotStart);
    device.openingStatus = noErr;
    device.startingStatus = kAudioQueueErr_CannotStart;
    EXPECT_EQ(queue.start(), kAudioQueueErr_CannotStart);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_EQ(device.openStreamCount(), 0U);
    device.startingStatus = noErr;
    EXPECT_EQ(queue.start(), noErr);
    device.advance(0.2, settleQueues);
    EXPECT_EQ(queue.returnCount(), 1U);
    EXPECT_EQ(device.heard().size(), 9600U);
}

TEST(AudioQueue, hasNotPlayedAllWhenItLosesItsDevice) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    queue.enqueue(std::vector<std::int16_t>(4800, 5));
    EXPECT_EQ(queue.start(), noErr);
    device.advance(0.2, settleQueues);
    // Every buffer has been played, but no stop has announced the end.
    EXPECT_EQ(queue.returnCount(), 1U);
    device.unplug();
    settleQueues();
    EXPECT_FALSE(queue.isRunning());
    EXPECT_FALSE(queue.hasPlayedAll());
}

TEST(AudioQueue, hasPlayedAllUntilTheNextBufferIsEnqueued) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    const std::vector<std::int16_t> audio(4800, 5);
    queue.enqueue(audio);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.2, settleQueues);
    EXPECT_TRUE(queue.hasPlayedAll());
    queue.enqueue(audio);
    EXPECT_FALSE(queue.hasPlayedAll());
}

TEST(AudioQueue, hasNotPlayedWhatWasEnqueuedBehindAStop) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    queue.onReturn = [&, isFirst = true](AudioQueueBufferRef buffer) mutable {
        if (std::exchange(isFirst, false)) {
            device.advance(0.3);
            std::thread([&] { EXPECT_EQ(queue.stop(true), noErr); }).join();
            EXPECT_TRUE(queue.hasPlayedAll());
            queue.enqueueFull(buffer);
        }
    };
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    queue.enqueue(std::vector<std::int16_t>(9600, 1));
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.02);
    EXPECT_TRUE(waitFor([&] { return queue.returnCount() == 3; }));
    EXPECT_FALSE(queue.hasPlayedAll());
}

// An application that sees that the queue has stopped may enqueue for the next run. Those buffers
// must not come back with the old run.
TEST(AudioQueue, runsUntilItsDeviceIsClosed) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    std::atomic<bool> wasRunningWhileClosing = false;
    device.onClosing = [&] { wasRunningWhileClosing = queue.isRunning(); };
    queue.enqueue(std::vector<std::int16_t>(4800, 1));
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.2, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_TRUE(wasRunningWhileClosing);
}

TEST(AudioQueue, countsInterruptionsWhileItPlaysOut) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(16));
    const std::vector<std::int16_t> audio(9600, 1);
    queue.enqueue(audio);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.15, settleQueues);
    device.isStalling = true;
    device.advance(0.02, settleQueues);
    device.isStalling = false;
    device.advance(0.1, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_TRUE(queue.hasPlayedAll());
    EXPECT_EQ(device.heard().size(), 2 * audio.size());
    EXPECT_EQ(queue.interruptionCount(), 1U);
}

TEST(AudioQueue, losesNothingOfAFrameThatIsBegunWhenItsStopIsCalledOff) {
    VirtualDevice device;
    OutputUnderTest queue(monoPcm(64, kFloats));
    const Bytes stream = repeated({0, 0, 0, 0, 0, 0, 0xD0, 0x3F}, 960 * sizeof(double));
    queue.enqueue(stream.data(), 1003);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    ASSERT_EQ(queue.start(), noErr);
    queue.enqueue(&stream[1003], stream.size() - 1003);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.1, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_EQ(device.heard(), repeated({0, 0, 0x80, 0x3E}, 960 * sizeof(float)));
}

}  // namespace
}  // namespace zav::test
