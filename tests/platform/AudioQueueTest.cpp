// Audio queues on the virtual device: formats, arguments, the device thread's rules, and what only
// a clock that is moved by hand can show. What holds on every device is in
// AudioQueueContractTest.cpp.

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <bit>
#include <cstring>
#include <future>
#include <limits>
#include <mutex>
#include <random>

#include "tests/support/Commands.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/RealTimeProbe.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

using Bytes = std::vector<std::byte>;

constexpr std::uint32_t kFloat = kAudioFormatFlagIsFloat;
constexpr std::uint32_t kSigned = kAudioFormatFlagIsSignedInteger;
constexpr std::uint32_t kBig = kAudioFormatFlagIsBigEndian;

template <class Value>
Bytes bytesOfValue(Value value, bool isBigEndian = false) {
    auto bytes = std::bit_cast<std::array<std::byte, sizeof(Value)>>(value);
    if (isBigEndian) {
        std::reverse(bytes.begin(), bytes.end());
    }
    return {bytes.begin(), bytes.end()};
}

AudioStreamBasicDescription in32(std::uint32_t flags) {
    auto format = pcmFormat(48000, 1, 32, flags);
    format.mBitsPerChannel = 24;
    format.mFormatFlags &= ~kAudioFormatFlagIsPacked;
    return format;
}

AudioStreamBasicDescription lawFormat(std::uint32_t formatID) {
    auto format = pcmFormat(48000, 1, 8, 0);
    format.mFormatID = formatID;
    return format;
}

/// A sample as the stream has it, and as the device does.
struct PcmCase {
    const char* name;
    AudioStreamBasicDescription format;
    Bytes inStream;
    Bytes atDevice;
};

Bytes repeated(const Bytes& samples, std::size_t size) {
    Bytes bytes;
    while (bytes.size() < size) {
        bytes.insert(bytes.end(), samples.begin(), samples.end());
    }
    return bytes;
}

/// A microphone that says these samples over and over.
void sayRepeatedly(VirtualDevice& device, const Bytes& samples) {
    device.setSpeaking([samples](std::span<std::byte> captured) {
        std::copy_n(repeated(samples, captured.size()).begin(), captured.size(), captured.begin());
    });
}

TEST(AudioQueue, playsAndCapturesAllKindsOfPcmAsTheyAre) {
    constexpr std::size_t kFrameCount = 480;
    const std::vector<PcmCase> cases = {
        {"signed 8", pcmFormat(48000, 1, 8, kSigned), bytesFrom({0x81}), bytesFrom({0x01})},
        {"unsigned 8", pcmFormat(48000, 1, 8, 0), bytesFrom({0x81}), bytesFrom({0x81})},
        {"unsigned 16", pcmFormat(48000, 1, 16, 0), bytesFrom({0x34, 0x92}),
         bytesFrom({0x34, 0x12})},
        {"unsigned 16 big", pcmFormat(48000, 1, 16, kBig), bytesFrom({0x92, 0x34}),
         bytesFrom({0x12, 0x34})},
        {"signed 16 big", pcmFormat(48000, 1, 16, kSigned | kBig), bytesFrom({0x12, 0x34}),
         bytesFrom({0x12, 0x34})},
        {"signed 24", pcmFormat(48000, 1, 24), bytesFrom({1, 2, 0x83}), bytesFrom({1, 2, 0x83})},
        {"unsigned 24", pcmFormat(48000, 1, 24, 0), bytesFrom({1, 2, 0x83}),
         bytesFrom({1, 2, 0x03})},
        {"signed 24 low in 32", in32(kSigned), bytesFrom({1, 2, 0x83, 0xff}),
         bytesFrom({1, 2, 0x83})},
        {"signed 24 low in 32 big", in32(kSigned | kBig), bytesFrom({0, 0x73, 2, 1}),
         bytesFrom({0x73, 2, 1})},
        {"unsigned 24 low in 32", in32(0), bytesFrom({1, 2, 0x83, 0}), bytesFrom({1, 2, 0x03})},
        {"signed 24 high in 32", in32(kSigned | kAudioFormatFlagIsAlignedHigh),
         bytesFrom({0, 1, 2, 0x83}), bytesFrom({0, 1, 2, 0x83})},
        {"signed 32", pcmFormat(48000, 1, 32), bytesFrom({1, 2, 3, 4}), bytesFrom({1, 2, 3, 4})},
        {"unsigned 32 big", pcmFormat(48000, 1, 32, kBig), bytesFrom({0x81, 2, 3, 4}),
         bytesFrom({0x01, 2, 3, 4})},
        {"float", pcmFormat(48000, 1, 32, kFloat), bytesOfValue(0.25F), bytesOfValue(0.25F)},
        {"float 64", pcmFormat(48000, 1, 64, kFloat), bytesOfValue(0.25), bytesOfValue(0.25F)},
        {"float 64 big", pcmFormat(48000, 1, 64, kFloat | kBig), bytesOfValue(-0.75, true),
         bytesOfValue(-0.75F, true)},
        {"A-law", lawFormat(kAudioFormatALaw), bytesFrom({0x55}), bytesFrom({0x55})},
        {"mu-law", lawFormat(kAudioFormatULaw), bytesFrom({0x55}), bytesFrom({0x55})},
    };
    for (const PcmCase& pcm : cases) {
        SCOPED_TRACE(pcm.name);
        VirtualDevice device;
        sayRepeatedly(device, pcm.atDevice);
        OutputUnderTest output(pcm.format);
        const Bytes audio = repeated(pcm.inStream, kFrameCount * pcm.inStream.size());
        // The second buffer begins inside a frame.
        output.enqueue(audio.data(), 1);
        output.enqueue(audio.data() + 1, audio.size() - 1);
        ASSERT_EQ(output.start(), noErr);
        InputUnderTest input(pcm.format);
        input.enqueue(1, static_cast<std::uint32_t>(audio.size()));
        ASSERT_EQ(input.start(), noErr);
        device.advance(0.1, settleQueues);
        EXPECT_EQ(output.returnCount(), 2U);
        EXPECT_EQ(device.heard(), repeated(pcm.atDevice, kFrameCount * pcm.atDevice.size()));
        EXPECT_EQ(input.captured(), audio);
    }
}

/// Samples of a format of the device: one that is not loud, and the loudest on both sides.
struct LevelCase {
    const char* name;
    AudioStreamBasicDescription format;
    Bytes quiet;
    double quietPeak;
    Bytes loud;
};

LevelCase integerCase(const char* name, std::uint32_t bits, std::uint32_t flags = 0) {
    const auto bytes = [&](std::int32_t value) {
        Bytes sample = bytesOfValue(value);
        sample.resize(bits / 8);
        if ((flags & kBig) != 0) {
            std::reverse(sample.begin(), sample.end());
        }
        return sample;
    };
    const std::int32_t highest = std::numeric_limits<std::int32_t>::max() >> (32 - bits);
    const std::int32_t quiet = -highest / 4 - 1;
    return {name, pcmFormat(48000, 1, bits, kSigned | flags), bytes(quiet),
            -static_cast<double>(quiet) / highest, joined({bytes(highest), bytes(-highest - 1)})};
}

LevelCase floatCase(const char* name, std::uint32_t flags = 0) {
    const bool isBig = flags != 0;
    return {name, pcmFormat(48000, 1, 32, kFloat | flags), bytesOfValue(-0.25F, isBig), 0.25,
            joined({bytesOfValue(1.0F, isBig), bytesOfValue(-1.5F, isBig)})};
}

TEST(AudioQueue, tellsHowLoudItsAudioIs) {
    const std::vector<LevelCase> cases = {
        {"unsigned 8", pcmFormat(48000, 1, 8, 0), bytesFrom({0x60}), 32.0 / 127,
         bytesFrom({0xFF, 0})},
        integerCase("signed 16", 16),
        integerCase("signed 16 big", 16, kBig),
        integerCase("signed 24", 24),
        integerCase("signed 24 big", 24, kBig),
        integerCase("signed 32", 32),
        integerCase("signed 32 big", 32, kBig),
        floatCase("float"),
        floatCase("float big", kBig),
        {"A-law", lawFormat(kAudioFormatALaw), bytesFrom({0xBA}), 0.5, bytesFrom({0xAA, 0x2A})},
        {"mu-law", lawFormat(kAudioFormatULaw), bytesFrom({0x90}), 15996.0 / 32124,
         bytesFrom({0x80, 0x00})},
    };
    for (const LevelCase& kind : cases) {
        SCOPED_TRACE(kind.name);
        VirtualDevice device;
        OutputUnderTest output(kind.format);
        InputUnderTest input(kind.format);
        input.recycle();
        input.enqueue(3, 4800);
        const std::array<const QueueUnderTest*, 2> queues = {&output, &input};
        // A step of the device's clock is 240 frames.
        const auto pass = [&](const Bytes& samples) {
            sayRepeatedly(device, samples);
            output.enqueue(repeated(samples, 240 * kind.quiet.size()));
            device.advance(0.005, settleQueues);
        };
        const auto expectLevels = [&](double peak, std::uint64_t clippedSampleCount) {
            for (const auto* const queue : queues) {
                const AudioQueueLevel level = queue->level();
                EXPECT_DOUBLE_EQ(level.peak, peak);
                EXPECT_EQ(level.clippedSampleCount, clippedSampleCount);
            }
        };
        const auto expectLevelSize = [&] {
            for (const auto* const queue : queues) {
                std::uint32_t size = 0;
                EXPECT_EQ(AudioQueueGetPropertySize(queue->get(), kAudioQueueProperty_Level, &size),
                          noErr);
                EXPECT_EQ(size, sizeof(AudioQueueLevel));
                AudioQueueLevel level;
                --size;
                EXPECT_EQ(
                    AudioQueueGetProperty(queue->get(), kAudioQueueProperty_Level, &level, &size),
                    kAudioQueueErr_InvalidPropertySize);
            }
        };
        ASSERT_EQ(output.start(), noErr);
        ASSERT_EQ(input.start(), noErr);
        // Nobody has asked, so nothing is measured; to ask for its size is not to ask.
        expectLevelSize();
        pass(kind.loud);
        expectLevels(0, 0);
        pass(kind.quiet);
        expectLevelSize();
        expectLevels(kind.quietPeak, 0);
        pass(kind.loud);
        pass(kind.quiet);
        expectLevels(1, 240);
        expectLevels(0, 240);
        // The counts of a run can be read until the next one begins.
        device.advance(0.005, settleQueues);
        EXPECT_EQ(output.interruptionCount(), 1U);
        ASSERT_EQ(output.stop(true), noErr);
        ASSERT_EQ(input.stop(true), noErr);
        for (const auto* const queue : queues) {
            EXPECT_EQ(queue->level().clippedSampleCount, 240U);
        }
        EXPECT_EQ(output.interruptionCount(), 1U);
        ASSERT_EQ(output.start(), noErr);
        ASSERT_EQ(input.start(), noErr);
        expectLevels(0, 0);
        EXPECT_EQ(output.interruptionCount(), 0U);
    }
}

TEST(AudioQueue, refusesFormatsWhenItIsMade) {
    const auto change = [](auto mutate) {
        AudioStreamBasicDescription format = pcmFormat(48000, 2);
        mutate(format);
        return format;
    };
    const std::vector<AudioStreamBasicDescription> formats = {
        AudioStreamBasicDescription(),
        change([](auto& format) { format.mSampleRate = 7999; }),
        change([](auto& format) { format.mSampleRate = 192001; }),
        change([](auto& format) { format.mSampleRate = 44100.5; }),
        change([](auto& format) { format.mSampleRate = std::nan(""); }),
        change([](auto& format) { format.mChannelsPerFrame = 0; }),
        pcmFormat(48000, 9),
        change([](auto& format) { format.mBytesPerFrame = 5; }),
        change([](auto& format) { format.mBytesPerPacket = 2; }),
        change([](auto& format) { format.mFramesPerPacket = 2; }),
        change([](auto& format) { format.mBitsPerChannel = 20; }),
        change([](auto& format) { format.mFormatFlags |= kAudioFormatFlagIsNonInterleaved; }),
        pcmFormat(48000, 1, 16, kFloat),
        sbcFormat(16000, 1, 0, 60),
        change([](auto& format) { format.mFormatID = fourCharCode("what"); }),
    };
    for (const AudioStreamBasicDescription& format : formats) {
        AudioQueueRef queue = nullptr;
        EXPECT_EQ(AudioQueueNewOutputWithDispatchQueue(
                      &queue, &format, 0,
                      &DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated),
                      [](AudioQueueRef, AudioQueueBufferRef) {}),
                  kAudioFormatUnsupportedDataFormatError);
        const auto callback = [](void*, AudioQueueRef, AudioQueueBufferRef, const AudioTimeStamp*,
                                 std::uint32_t, const AudioStreamPacketDescription*) {};
        EXPECT_EQ(AudioQueueNewInput(&format, callback, nullptr, nullptr, nullptr, 0, &queue),
                  kAudioFormatUnsupportedDataFormatError);
        EXPECT_EQ(queue, nullptr);
    }
}

TEST(AudioQueue, answersWrongCallsWithAStatusAndStaysAsItWas) {
    VirtualDevice device;
    const AudioStreamBasicDescription format = pcmFormat(48000, 2);
    OutputUnderTest output(format);
    OutputUnderTest other(format);
    InputUnderTest input(format);
    AudioQueueBufferRef buffer = nullptr;
    EXPECT_EQ(AudioQueueAllocateBuffer(output.get(), 0, &buffer), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueAllocateBuffer(output.get(), 16, nullptr), kAudioQueueErr_InvalidParameter);
    buffer = output.allocate(16);

    const auto enqueue = [&](std::uint32_t size,
                             std::vector<AudioStreamPacketDescription> packets) {
        buffer->mAudioDataByteSize = size;
        return AudioQueueEnqueueBuffer(output.get(), buffer,
                                       static_cast<std::uint32_t>(packets.size()), packets.data());
    };
    EXPECT_EQ(enqueue(0, {}), kAudioQueueErr_BufferEmpty);
    EXPECT_EQ(enqueue(17, {}), kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {{-1, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(enqueue(16, {{13, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueEnqueueBuffer(output.get(), buffer, 1, nullptr),
              kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueEnqueueBuffer(other.get(), buffer, 0, nullptr),
              kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {}), noErr);
    EXPECT_EQ(enqueue(16, {}), kAudioQueueErr_BufferInQueue);
    // Too small for one frame.
    EXPECT_EQ(AudioQueueEnqueueBuffer(input.get(), input.allocate(3), 0, nullptr),
              kAudioQueueErr_InvalidBuffer);

    const AudioTimeStamp later;
    EXPECT_EQ(AudioQueueStart(output.get(), &later), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueGetCurrentTime(output.get(), nullptr, nullptr, nullptr),
              kAudioQueueErr_InvalidParameter);

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
    EXPECT_EQ(AudioQueueGetPropertySize(input.get(), kAudioQueueProperty_MagicCookie, &size),
              noErr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(input.property<AudioStreamBasicDescription>(kAudioQueueProperty_StreamDescription),
              format);
    EXPECT_EQ(input.property<std::uint32_t>(kAudioQueueProperty_MaximumOutputPacketSize), 4U);
}

TEST(AudioQueue, aStartThatFailsLosesNothing) {
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    const std::vector<std::int16_t> audio(4800, 5);
    queue.enqueue(audio);
    device.unplug();
    EXPECT_EQ(queue.start(), kAudioQueueErr_InvalidDevice);
    device.plugIn();
    device.refuseOpening(kAudioQueueErr_CannotStart);
    EXPECT_EQ(queue.start(), kAudioQueueErr_CannotStart);
    device.refuseOpening(noErr);
    device.refuseStarting(kAudioQueueErr_CannotStart);
    EXPECT_EQ(queue.start(), kAudioQueueErr_CannotStart);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_EQ(device.openStreamCount(), 0U);
    device.refuseStarting(noErr);
    EXPECT_EQ(queue.start(), noErr);
    device.advance(0.2, settleQueues);
    EXPECT_EQ(queue.returnCount(), 1U);
    EXPECT_EQ(device.heard().size(), 9600U);
}

TEST(AudioQueue, runsUntilItsDeviceIsClosed) {
    // Somebody who sees that a queue has stopped enqueues for the next run: none of that may go
    // back with the old one.
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    std::atomic<bool> wasRunningWhileClosing = false;
    device.setOnClosing([&] { wasRunningWhileClosing = queue.isRunning(); });
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.1, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_TRUE(wasRunningWhileClosing);
    device.setOnClosing({});
}

TEST(AudioQueue, countsInterruptionsAlsoOfAnEndButNotTheEnd) {
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    const std::vector<std::int16_t> audio(9600, 1);
    queue.enqueue(audio);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    device.advance(0.15, settleQueues);
    device.setStalling(true);
    device.advance(0.02, settleQueues);
    device.setStalling(false);
    device.advance(0.1, settleQueues);
    EXPECT_TRUE(queue.hasPlayedAll());
    queue.enqueue(audio);
    EXPECT_FALSE(queue.hasPlayedAll());
    EXPECT_EQ(device.heard().size(), 2 * audio.size());
    EXPECT_EQ(queue.interruptionCount(), 1U);
}

TEST(AudioQueue, doesNothingOnTheDeviceThreadThatCouldHoldItUp) {
    VirtualDevice device;
    // That the counters count.
    RealTimeProbe::reset();
    {
        const RealTimeProbe probe;
        std::mutex mutex;
        const std::lock_guard lock(mutex);
        ::operator delete[](::operator new[](1));
    }
    EXPECT_EQ(RealTimeProbe::allocationCount(), 2);
    EXPECT_EQ(RealTimeProbe::lockCount(), 1);

    RealTimeProbe::reset();
    OutputUnderTest output(pcmFormat(48000, 2));
    OutputUnderTest converted(pcmFormat(48000, 2, 64, kFloat));
    InputUnderTest input(pcmFormat(48000, 2, 8));
    input.recycle();
    input.enqueue(3, 4800);
    for (std::size_t i = 0; i < 20; ++i) {
        output.enqueue(std::vector<std::int16_t>(4001, 1));
        converted.enqueue(std::vector<double>(4001, 0.5));
    }
    // From the first look on levels are measured, too.
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

TEST(AudioQueue, usesTheDispatchQueueThatItWasGiven) {
    class OneThread : public DispatchQueue {
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
    VirtualDevice device;
    OneThread ours;
    OutputUnderTest queue(pcmFormat(48000, 1), &ours);
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    queue.enqueue(std::vector<std::int16_t>(480, 1));
    ASSERT_EQ(queue.start(), noErr);
    device.advance(0.1);
    EXPECT_EQ(queue.returnCount(), 0U);
    while (queue.returnCount() < 2) {
        ours.run();
    }
    EXPECT_EQ(queue.callbackThreads(), std::set{std::this_thread::get_id()});
    queue.dispose();

    // The dispatch queue may end right behind the queue.
    for (int round = 0; round < 50; ++round) {
        OneThread brief;
        OutputUnderTest dropped(pcmFormat(48000, 1), &brief);
        dropped.enqueue(std::vector<std::int16_t>(48, 1));
        ASSERT_EQ(dropped.start(), noErr);
        device.advance(0.01);
        dropped.dispose();
    }
}

/// A microphone that says 1, 2, 3 and so on.
void sayCounting(VirtualDevice& device) {
    device.setSpeaking([next = std::int16_t{1}](std::span<std::byte> captured) mutable {
        for (std::size_t i = 0; i + 1 < captured.size(); i += 2, ++next) {
            std::memcpy(captured.data() + i, &next, 2);
        }
    });
}

void expectCounting(const Bytes& captured, std::size_t frameCount) {
    ASSERT_EQ(captured.size(), 2 * frameCount);
    for (std::size_t i = 0; i < frameCount; ++i) {
        std::int16_t sample = 0;
        std::memcpy(&sample, captured.data() + 2 * i, 2);
        ASSERT_EQ(sample, static_cast<std::int16_t>(i + 1));
    }
}

TEST(AudioQueue, anApplicationThatIsLateWithItsBuffersFindsTheAudioHeldBack) {
    VirtualDevice device;
    sayCounting(device);
    InputUnderTest queue(pcmFormat(8000, 1));
    queue.enqueue(1, 1600);
    ASSERT_EQ(queue.start(), noErr);
    device.advance(3, settleQueues);
    EXPECT_EQ(queue.returnCount(), 1U);
    EXPECT_EQ(queue.interruptionCount(), 1U);
    // 3.5 s are 28000 frames: of the 23200 that there is room for none is missing or out of order.
    queue.enqueue(28, 1600);
    device.advance(0.5, settleQueues);
    ASSERT_EQ(queue.stop(true), noErr);
    settleQueues();
    expectCounting(queue.captured(), 23200);
}

TEST(AudioQueue, aStopTakesWhatTheDeviceHoldsBackForALateCallback) {
    VirtualDevice device;
    sayCounting(device);
    std::promise<void> entered;
    std::promise<void> mayLeave;
    InputUnderTest queue(pcmFormat(8000, 1));
    queue.onReturn = [&, isFirst = true](AudioQueueBufferRef) mutable {
        if (std::exchange(isFirst, false)) {
            entered.set_value();
            mayLeave.get_future().wait();
        }
    };
    queue.enqueue(1, 1600);
    queue.enqueue(1, 80000);
    ASSERT_EQ(queue.start(), noErr);
    device.advance(0.1);
    entered.get_future().wait();
    device.advance(3);
    ASSERT_EQ(queue.stop(true), noErr);
    mayLeave.set_value();
    settleQueues();
    expectCounting(queue.captured(), 24800);
}

#ifdef ZAV_HAS_FFMPEG

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
        // The parser knows of the last frame's end only by the next one's beginning.
        constexpr std::size_t kFrameBytes = 1536 * 2 * sizeof(float);
        EXPECT_EQ(device.heard().size(), heardBefore + kFrameBytes);
        EXPECT_EQ(device.heard().size() % kFrameBytes, 0U);
        EXPECT_GE(device.heard().size(), 2 * 48000 * 2 * sizeof(float));
    }
}

TEST(AudioQueue, losesNothingOfWhatIsDecodedWhenTheStreamGoesOnAfterAStop) {
    {
        // Called off while a frame is begun.
        VirtualDevice device;
        OutputUnderTest queue(pcmFormat(48000, 1, 64, kFloat));
        const Bytes stream = repeated(bytesOfValue(0.25), 960 * sizeof(double));
        queue.enqueue(stream.data(), 1003);
        ASSERT_EQ(queue.start(), noErr);
        ASSERT_EQ(queue.stop(false), noErr);
        ASSERT_EQ(queue.start(), noErr);
        queue.enqueue(&stream[1003], stream.size() - 1003);
        ASSERT_EQ(queue.stop(false), noErr);
        device.advance(0.1, settleQueues);
        EXPECT_FALSE(queue.isRunning());
        EXPECT_EQ(device.heard(), repeated(bytesOfValue(0.25F), 960 * sizeof(float)));
    }
    // Enqueued before the stop is over.
    VirtualDevice device;
    OutputUnderTest queue(compressedFormat(kAudioFormatAC3, 48000, 2));
    const Bytes stream = twoSecondsOfAc3();
    constexpr std::size_t kPacketBytes = 768;
    queue.enqueue(stream.data(), 10 * kPacketBytes);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    queue.enqueue(&stream[10 * kPacketBytes], stream.size() - 10 * kPacketBytes);
    device.advance(3, settleQueues);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_TRUE(queue.hasPlayedAll());
    EXPECT_EQ(device.heard().size(), stream.size() / kPacketBytes * 1536 * 2 * sizeof(float));
}

TEST(AudioQueue, tellsOfCookiesWhatIsWrongWithThem) {
    VirtualDevice device;
    OutputUnderTest aac(compressedFormat(kAudioFormatMPEG4AAC, 48000, 2));
    OutputUnderTest ac3(compressedFormat(kAudioFormatAC3, 48000, 2));
    const std::uint32_t junk = 0xFFFFFFFF;
    EXPECT_EQ(AudioQueueSetProperty(aac.get(), kAudioQueueProperty_MagicCookie, &junk, 4),
              kAudioQueueErr_InvalidPropertyValue);
    EXPECT_EQ(AudioQueueSetProperty(ac3.get(), kAudioQueueProperty_MagicCookie, &junk, 4),
              kAudioQueueErr_InvalidProperty);
}

TEST(AudioQueue, capturesPacketsWhosePlacesStayWithTheirBuffer) {
    VirtualDevice device;
    InputUnderTest queue(compressedFormat(kAudioFormatFLAC, 48000, 2));
    std::atomic<bool> isOver = false;
    // The encoder is made anew at every stop.
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
        queue.onReturn = [&, isFirst = true](AudioQueueBufferRef buffer) mutable {
            if (std::exchange(isFirst, false)) {
                std::thread([&] { EXPECT_EQ(queue.stop(true), noErr); }).join();
                EXPECT_EQ(AudioQueueEnqueueBuffer(queue.get(), buffer, 0, nullptr), noErr);
            }
        };
        queue.forget();
        queue.enqueue(2, 200000);
        ASSERT_EQ(queue.start(), noErr);
        device.advance(0.8, settleQueues);
        const auto returns = queue.returns();
        ASSERT_EQ(returns.size(), 3U);
        std::uint64_t frameCount = 0;
        for (const auto& returned : returns) {
            std::int64_t end = 0;
            for (const AudioStreamPacketDescription& packet : returned.descriptions) {
                EXPECT_EQ(packet.mStartOffset, end);
                end += packet.mDataByteSize;
                frameCount +=
                    packet.mVariableFramesInPacket != 0 ? packet.mVariableFramesInPacket : 4608;
            }
            EXPECT_EQ(static_cast<std::size_t>(end), returned.bytes.size());
        }
        EXPECT_TRUE(returns[2].bytes.empty());
        EXPECT_GE(frameCount, 24000U);
    }
    isOver = true;
    reader.join();
}

#endif

TEST(AudioQueue, aWholeDayEndsAtTheRightFrameInTheMemoryThatItBeganWith) {
    constexpr double kHours = ZAV_TEST_HOURS;
    constexpr double kSpeechRate = 16000;
    VirtualDevice device;
    std::uint64_t heardBytes = 0;
    bool isHeardInOrder = true;
    std::int16_t heard = 1;
    device.setHearing([&](std::span<const std::byte> audio) {
        heardBytes += audio.size();
        for (std::size_t i = 0; i < audio.size(); i += 2, ++heard) {
            isHeardInOrder = isHeardInOrder && std::memcmp(audio.data() + i, &heard, 2) == 0;
        }
    });
    sayCounting(device);
    // What is captured is played: 0.5 s of delay, as in an application.
    std::mutex mutex;
    std::vector<AudioQueueBufferRef> idle;
    OutputUnderTest output(pcmFormat(kSpeechRate, 1));
    output.onReturn = [&](AudioQueueBufferRef buffer) {
        const std::lock_guard lock(mutex);
        idle.push_back(buffer);
        output.forget();
    };
    InputUnderTest input(pcmFormat(kSpeechRate, 1));
    input.onReturn = [&](AudioQueueBufferRef captured) {
        if (captured->mAudioDataByteSize > 0) {
            AudioQueueBufferRef buffer = nullptr;
            {
                const std::lock_guard lock(mutex);
                if (idle.empty()) {
                    idle.push_back(output.allocate(16000));
                }
                buffer = idle.back();
                idle.pop_back();
            }
            std::memcpy(buffer->mAudioData, captured->mAudioData, captured->mAudioDataByteSize);
            buffer->mAudioDataByteSize = captured->mAudioDataByteSize;
            EXPECT_EQ(AudioQueueEnqueueBuffer(output.get(), buffer, 0, nullptr), noErr);
        }
        EXPECT_EQ(AudioQueueEnqueueBuffer(input.get(), captured, 0, nullptr), noErr);
        input.forget();
    };
    input.enqueue(3, 16000);
    ASSERT_EQ(input.start(), noErr);
    device.advance(1.02, settleQueues);
    ASSERT_EQ(output.start(), noErr);
    device.advance(3600, settleQueues);
    const std::size_t memoryAfterAnHour = mallinfo2().uordblks;
    device.advance((kHours - 1) * 3600, settleQueues);

    EXPECT_NEAR(input.currentFrame(), (kHours * 3600 + 1.02) * kSpeechRate, 1);
    EXPECT_NEAR(output.currentFrame(), kHours * 3600 * kSpeechRate, 1);
    EXPECT_EQ(heardBytes, 2 * static_cast<std::uint64_t>(output.currentFrame()));
    EXPECT_TRUE(isHeardInOrder);
    EXPECT_LE(idle.size(), 4U);
    EXPECT_LT(mallinfo2().uordblks, memoryAfterAnHour + 65536);
}

}  // namespace
}  // namespace zav::test
