// Calls of audio queues with wrong arguments: each returns its status and leaves the queue as it
// was.

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

const AudioStreamBasicDescription kStereo16 = pcmFormat(48000, 2);

TEST(AudioQueue, refusesAnAllocationWithAMissingArgument) {
    OutputUnderTest queue(kStereo16);
    AudioQueueBufferRef buffer = nullptr;
    EXPECT_EQ(AudioQueueAllocateBuffer(queue.get(), 0, &buffer), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueAllocateBuffer(queue.get(), 16, nullptr), kAudioQueueErr_InvalidParameter);
}

TEST(AudioQueue, refusesBuffersThatItCannotEnqueue) {
    OutputUnderTest queue(kStereo16);
    AudioQueueBufferRef const buffer = queue.allocate(16);
    const auto enqueue = [&](std::uint32_t byteCount,
                             std::vector<AudioStreamPacketDescription> packets) {
        buffer->mAudioDataByteSize = byteCount;
        return AudioQueueEnqueueBuffer(queue.get(), buffer,
                                       static_cast<std::uint32_t>(packets.size()), packets.data());
    };
    EXPECT_EQ(enqueue(0, {}), kAudioQueueErr_BufferEmpty);
    EXPECT_EQ(enqueue(17, {}), kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {{-1, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(enqueue(16, {{13, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueEnqueueBuffer(queue.get(), buffer, 1, nullptr),
              kAudioQueueErr_InvalidParameter);
    OutputUnderTest other(kStereo16);
    EXPECT_EQ(AudioQueueEnqueueBuffer(other.get(), buffer, 0, nullptr),
              kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {}), noErr);
    EXPECT_EQ(enqueue(16, {}), kAudioQueueErr_BufferInQueue);
    InputUnderTest input(kStereo16);
    // Too small for one frame.
    EXPECT_EQ(AudioQueueEnqueueBuffer(input.get(), input.allocate(3), 0, nullptr),
              kAudioQueueErr_InvalidBuffer);
}

TEST(AudioQueue, refusesAStartTime) {
    VirtualDevice device;
    OutputUnderTest queue(kStereo16);
    const AudioTimeStamp later;
    EXPECT_EQ(AudioQueueStart(queue.get(), &later), kAudioQueueErr_InvalidParameter);
    EXPECT_FALSE(queue.isRunning());
}

TEST(AudioQueue, refusesToReportItsTimeWithoutATimeStamp) {
    OutputUnderTest queue(kStereo16);
    EXPECT_EQ(AudioQueueGetCurrentTime(queue.get(), nullptr, nullptr, nullptr),
              kAudioQueueErr_InvalidParameter);
}

TEST(AudioQueue, refusesWrongPropertyCalls) {
    OutputUnderTest output(kStereo16);
    InputUnderTest input(kStereo16);
    std::uint32_t size = 0;
    std::uint32_t value = 7;
    EXPECT_EQ(AudioQueueGetProperty(output.get(), kAudioQueueProperty_IsRunning, &value, &size),
              kAudioQueueErr_InvalidPropertySize);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(AudioQueueGetPropertySize(input.get(), kAudioQueueProperty_HasPlayedAll, &size),
              kAudioQueueErr_InvalidProperty);
    EXPECT_EQ(AudioQueueGetPropertySize(output.get(), fourCharCode("what"), &size),
              kAudioQueueErr_InvalidProperty);
    EXPECT_EQ(AudioQueueSetProperty(output.get(), kAudioQueueProperty_MagicCookie, &value, 4),
              kAudioQueueErr_InvalidProperty);
}

TEST(AudioQueue, reportsTheStreamThatItCaptures) {
    InputUnderTest queue(kStereo16);
    std::uint32_t size = 1;
    EXPECT_EQ(AudioQueueGetPropertySize(queue.get(), kAudioQueueProperty_MagicCookie, &size),
              noErr);
    EXPECT_EQ(size, 0U);
    std::uint32_t value = 0;
    size = sizeof(value);
    EXPECT_EQ(AudioQueueGetProperty(queue.get(), kAudioQueueProperty_MagicCookie, &value, &size),
              noErr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(queue.property<AudioStreamBasicDescription>(kAudioQueueProperty_StreamDescription),
              kStereo16);
    EXPECT_EQ(queue.property<std::uint32_t>(kAudioQueueProperty_MaximumOutputPacketSize), 4U);
}

}  // namespace
}  // namespace zav::test
