// The threads of audio queues, on the virtual device: what a queue does on the device thread, and
// where its callbacks run.

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/RealTimeProbe.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

TEST(RealTimeProbe, countsWhatADeviceThreadMustNotDo) {
    RealTimeProbe::reset();
    {
        const RealTimeProbe probe;
        std::mutex mutex;
        const std::lock_guard lock(mutex);
        ::operator delete[](::operator new[](1));
    }
    EXPECT_EQ(RealTimeProbe::allocationCount(), 2);
    EXPECT_EQ(RealTimeProbe::lockCount(), 1);
}

TEST(AudioQueue, doesNothingOnTheDeviceThreadThatCouldHoldItUp) {
    VirtualDevice device;
    RealTimeProbe::reset();
    OutputUnderTest output(pcmFormat(48000, 2));
    OutputUnderTest converted(pcmFormat(48000, 2, 64, kAudioFormatFlagIsFloat));
    InputUnderTest input(pcmFormat(48000, 2, 8));
    input.recycle();
    input.enqueueNew(3, 4800);
    for (std::size_t i = 0; i < 20; ++i) {
        output.enqueue(std::vector<std::int16_t>(4001, 1));
        converted.enqueue(std::vector<double>(4001, 0.5));
    }
    // The first reading makes the queues measure their levels, too.
    EXPECT_EQ(output.level().peak + converted.level().peak + input.level().peak, 0);
    ASSERT_EQ(output.start(), noErr);
    ASSERT_EQ(converted.start(), noErr);
    ASSERT_EQ(input.start(), noErr);
    device.advance(2, settleQueues);
    EXPECT_GT(output.level().peak, 0);
    EXPECT_EQ(converted.level().peak, 0.5);
    ASSERT_EQ(output.stop(false), noErr);
    device.advance(0.2, settleQueues);
    device.unplug();
    settleQueues();
    EXPECT_EQ(output.returnCount(), 20U);
    EXPECT_EQ(converted.returnCount(), 20U);
    EXPECT_GT(input.returnCount(), 30U);
    EXPECT_GT(RealTimeProbe::probedCallCount(), 1000);
    EXPECT_EQ(RealTimeProbe::allocationCount(), 0);
    EXPECT_EQ(RealTimeProbe::lockCount(), 0);
}

// Nodes ask in every callback, and a decoder or a sound server can hold an enqueueing thread up.
TEST(AudioQueue, reportsItsStateWhileABufferIsBeingEnqueued) {
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    ASSERT_EQ(queue.start(), noErr);
    std::promise<void> isEnqueueing;
    std::promise<void> mayGoOn;
    device.onAudioAdded = [&] {
        isEnqueueing.set_value();
        mayGoOn.get_future().wait();
    };
    std::thread enqueueing([&] { queue.enqueue(std::vector<std::int16_t>(480, 1)); });
    isEnqueueing.get_future().wait();
    EXPECT_TRUE(queue.isRunning());
    EXPECT_EQ(queue.interruptionCount(), 0U);
    EXPECT_EQ(queue.level().peak, 0);
    mayGoOn.set_value();
    enqueueing.join();
    device.onAudioAdded = nullptr;
}

/// Keeps its work until the test runs it, on the test's thread.
class ManualDispatchQueue : public DispatchQueue {
 public:
    void async(std::function<void()> work) override {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    void run() {
        std::vector<std::function<void()>> now;
        {
            const std::lock_guard lock(mutex_);
            now.swap(work_);
        }
        for (const auto& work : now) {
            work();
        }
    }

 private:
    std::mutex mutex_;
    std::vector<std::function<void()>> work_;
};

TEST(AudioQueue, usesTheDispatchQueueThatItWasGiven) {
    VirtualDevice device;
    ManualDispatchQueue ours;
    OutputUnderTest queue(pcmFormat(48000, 1), &ours);
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    ASSERT_EQ(queue.start(), noErr);
    device.advance(0.1);
    EXPECT_EQ(queue.returnCount(), 0U);
    while (queue.returnCount() < 2) {
        ours.run();
    }
    for (const auto& returned : queue.returns()) {
        EXPECT_EQ(returned.thread, std::this_thread::get_id());
    }
}

TEST(AudioQueue, itsDispatchQueueMayEndRightAfterIt) {
    VirtualDevice device;
    for (int round = 0; round < 50; ++round) {
        ManualDispatchQueue brief;
        OutputUnderTest queue(pcmFormat(48000, 1), &brief);
        queue.enqueue(std::vector<std::int16_t>(48, 1));
        ASSERT_EQ(queue.start(), noErr);
        device.advance(0.01);
        queue.dispose();
    }
}

}  // namespace
}  // namespace zav::test
