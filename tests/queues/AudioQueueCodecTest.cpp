// Audio queues of compressed streams, on the virtual device and FFmpeg's codecs.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Commands.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

constexpr std::size_t kAc3PacketBytes = 768;
constexpr std::size_t kAc3DecodedPacketBytes = 1536 * 2 * sizeof(float);

/// Stereo at 48 kHz.
Bytes twoSecondsOfAc3() {
    return bytesOutputOf(
        "ffmpeg -nostdin -v error -f lavfi -i sine=r=48000:d=2 -ac 2 -c:a ac3 -b:a 192k -f ac3 -");
}

TEST(AudioQueue, playsWhatItsDecoderHoldsAtAStopAlsoWhenItPausedForWantOfAudio) {
    enum class Pause { none, beforeStop, afterStop };
    const Bytes bytes = twoSecondsOfAc3();
    for (const Pause pause : {Pause::none, Pause::beforeStop, Pause::afterStop}) {
        VirtualDevice device;
        OutputUnderTest queue(compressedFormat(kAudioFormatAC3, 48000, 2));
        for (std::size_t at = 0; at < bytes.size(); at += 5000) {
            queue.enqueue(&bytes[at], std::min<std::size_t>(5000, bytes.size() - at));
        }
        const std::size_t bufferCount = (bytes.size() + 4999) / 5000;
        ASSERT_EQ(queue.start(), noErr);
        while (queue.returnCount() < bufferCount) {
            device.advance(0.1, settleQueues);
        }
        const std::size_t heardBefore = device.heard().size();
        if (pause == Pause::beforeStop) {
            ASSERT_EQ(queue.pause(), noErr);
        }
        ASSERT_EQ(queue.stop(false), noErr);
        if (pause == Pause::afterStop) {
            ASSERT_EQ(queue.pause(), noErr);
        }
        EXPECT_TRUE(queue.isRunning());
        device.advance(0.5, settleQueues);
        EXPECT_FALSE(queue.isRunning());
        // The parser finds the end of a packet only when the next one begins, so it keeps the last
        // one back until the stop.
        EXPECT_EQ(device.heard().size(), heardBefore + kAc3DecodedPacketBytes);
        EXPECT_EQ(device.heard().size() % kAc3DecodedPacketBytes, 0U);
        EXPECT_GE(device.heard().size(), 2 * 48000 * 2 * sizeof(float));
    }
}

TEST(AudioQueue, decodesOnInTheStreamThatIsEnqueuedDuringAStop) {
    VirtualDevice device;
    OutputUnderTest queue(compressedFormat(kAudioFormatAC3, 48000, 2));
    const Bytes stream = twoSecondsOfAc3();
    queue.enqueue(stream.data(), 10 * kAc3PacketBytes);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    queue.enqueue(&stream[10 * kAc3PacketBytes], stream.size() - 10 * kAc3PacketBytes);
    device.advance(3, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_TRUE(queue.hasPlayedAll());
    EXPECT_EQ(device.heard().size(), stream.size() / kAc3PacketBytes * kAc3DecodedPacketBytes);
}

TEST(AudioQueue, refusesACookieThatItsDecoderCannotUse) {
    const auto setJunk = [](const OutputUnderTest& queue) {
        const std::uint32_t junk = 0xFFFFFFFF;
        return AudioQueueSetProperty(queue.get(), kAudioQueueProperty_MagicCookie, &junk,
                                     sizeof(junk));
    };
    const OutputUnderTest aac(compressedFormat(kAudioFormatMPEG4AAC, 48000, 2));
    const OutputUnderTest ac3(compressedFormat(kAudioFormatAC3, 48000, 2));
    EXPECT_EQ(setJunk(aac), kAudioQueueErr_InvalidPropertyValue);
    EXPECT_EQ(setJunk(ac3), kAudioQueueErr_InvalidProperty);
}

/// Expects that the packets of a captured buffer lie one behind the other and fill it. Returns
/// their frames.
std::uint64_t frameCountOf(const QueueUnderTest::Return& captured,
                           std::uint32_t framesPerFullPacket) {
    std::uint64_t frameCount = 0;
    std::int64_t end = 0;
    for (const AudioStreamPacketDescription& packet : captured.descriptions) {
        EXPECT_EQ(packet.mStartOffset, end);
        end += packet.mDataByteSize;
        frameCount += packet.mVariableFramesInPacket != 0 ? packet.mVariableFramesInPacket
                                                          : framesPerFullPacket;
    }
    EXPECT_EQ(static_cast<std::size_t>(end), captured.bytes.size());
    return frameCount;
}

TEST(AudioQueue, capturesPacketsWhosePlacesStayWithTheirBuffer) {
    VirtualDevice device;
    InputUnderTest queue(compressedFormat(kAudioFormatFLAC, 48000, 2));
    for (int round = 0; round < 10; ++round) {
        queue.onReturn = [&, isFirst = true](AudioQueueBufferRef buffer) mutable {
            if (std::exchange(isFirst, false)) {
                std::thread([&] { EXPECT_EQ(queue.stop(true), noErr); }).join();
                queue.enqueueFull(buffer);
            }
        };
        queue.forget();
        queue.enqueueNew(2, 200000);
        ASSERT_EQ(queue.start(), noErr);
        device.advance(0.8, settleQueues);
        const auto returns = queue.returns();
        ASSERT_EQ(returns.size(), 3U);
        std::uint64_t frameCount = 0;
        for (const auto& returned : returns) {
            frameCount += frameCountOf(returned, 4608);
        }
        EXPECT_TRUE(returns[2].bytes.empty());
        EXPECT_GE(frameCount, 24000U);
    }
}

// Every stop replaces the encoder, whose properties these are.
TEST(AudioQueue, propertiesOfItsEncoderMayBeReadDuringAStop) {
    VirtualDevice device;
    InputUnderTest queue(compressedFormat(kAudioFormatFLAC, 48000, 2));
    std::atomic<bool> isOver = false;
    std::thread reader([&] {
        while (!isOver) {
            std::uint32_t size = 0;
            EXPECT_EQ(
                AudioQueueGetPropertySize(queue.get(), kAudioQueueProperty_MagicCookie, &size),
                noErr);
            EXPECT_GT(queue.property<std::uint32_t>(kAudioQueueProperty_MaximumOutputPacketSize),
                      0U);
            const auto format =
                queue.property<AudioStreamBasicDescription>(kAudioQueueProperty_StreamDescription);
            EXPECT_GT(format.mFramesPerPacket, 0U);
        }
    });
    for (int round = 0; round < 10; ++round) {
        queue.enqueueNew(2, 200000);
        EXPECT_EQ(queue.start(), noErr);
        device.advance(0.8, settleQueues);
        EXPECT_EQ(queue.stop(true), noErr);
    }
    isOver = true;
    reader.join();
}

}  // namespace
}  // namespace zav::test
