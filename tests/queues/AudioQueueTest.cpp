// Audio queues on the virtual device: formats, arguments, the device thread's rules, and what only
// a clock that is moved by hand can show. What holds on every device is in
// AudioQueueContractTest.cpp.

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <cstring>
#include <future>
#include <mutex>
#include <random>
#include <thread>

#include "tests/support/Commands.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/Ramp.hpp"
#include "tests/support/RealTimeProbe.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/VirtualDevice.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

constexpr std::uint32_t kFloat = kAudioFormatFlagIsFloat;
constexpr std::uint32_t kSigned = kAudioFormatFlagIsSignedInteger;
constexpr std::uint32_t kBig = kAudioFormatFlagIsBigEndian;

AudioStreamBasicDescription pcmOf(std::uint32_t bits, std::uint32_t flags = kSigned) {
    return pcmFormat(48000, 1, bits, flags);
}

AudioStreamBasicDescription in32(std::uint32_t flags) {
    auto format = pcmOf(32, flags);
    format.mBitsPerChannel = 24;
    format.mFormatFlags &= ~kAudioFormatFlagIsPacked;
    return format;
}

AudioStreamBasicDescription lawFormat(std::uint32_t formatID) {
    auto format = pcmOf(8, 0);
    format.mFormatID = formatID;
    return format;
}

std::string nameOf(const AudioStreamBasicDescription& pcm) {
    return std::to_string(pcm.mBitsPerChannel) + " bits, " + fourCharText(pcm.mFormatID) +
           ", flags " + std::to_string(pcm.mFormatFlags);
}

using Sample = std::vector<std::uint8_t>;

/// One or more samples, over and over.
Bytes repeated(const Sample& samples, std::size_t size) {
    Bytes bytes;
    while (bytes.size() < size) {
        bytes.push_back(std::byte{samples[bytes.size() % samples.size()]});
    }
    return bytes;
}

/// A microphone that says these samples over and over.
void sayRepeatedly(VirtualDevice& device, const Sample& samples) {
    device.speaker = [samples](std::span<std::byte> captured) {
        std::copy_n(repeated(samples, captured.size()).begin(), captured.size(), captured.begin());
    };
}

TEST(AudioQueue, playsAndCapturesAllKindsOfPcmAsTheyAre) {
    constexpr std::size_t kFrameCount = 480;
    struct Case {
        AudioStreamBasicDescription format;
        Sample inStream;
        Sample atDevice;
    };
    const std::vector<Case> cases = {
        {pcmOf(8), {0x81}, {0x01}},
        {pcmOf(8, 0), {0x81}, {0x81}},
        {pcmOf(16, 0), {0x34, 0x92}, {0x34, 0x12}},
        {pcmOf(16, kBig), {0x92, 0x34}, {0x12, 0x34}},
        {pcmOf(16, kSigned | kBig), {0x12, 0x34}, {0x12, 0x34}},
        {pcmOf(24), {1, 2, 0x83}, {1, 2, 0x83}},
        {pcmOf(24, 0), {1, 2, 0x83}, {1, 2, 0x03}},
        {in32(kSigned), {1, 2, 0x83, 0xFF}, {1, 2, 0x83}},
        {in32(kSigned | kBig), {0, 0x73, 2, 1}, {0x73, 2, 1}},
        {in32(0), {1, 2, 0x83, 0}, {1, 2, 0x03}},
        {in32(kSigned | kAudioFormatFlagIsAlignedHigh), {0, 1, 2, 0x83}, {0, 1, 2, 0x83}},
        {pcmOf(32), {1, 2, 3, 4}, {1, 2, 3, 4}},
        {pcmOf(32, kBig), {0x81, 2, 3, 4}, {0x01, 2, 3, 4}},
        // 0.25 and -0.75
        {pcmOf(32, kFloat), {0, 0, 0x80, 0x3E}, {0, 0, 0x80, 0x3E}},
        {pcmOf(64, kFloat), {0, 0, 0, 0, 0, 0, 0xD0, 0x3F}, {0, 0, 0x80, 0x3E}},
        {pcmOf(64, kFloat | kBig), {0xBF, 0xE8, 0, 0, 0, 0, 0, 0}, {0xBF, 0x40, 0, 0}},
        {lawFormat(kAudioFormatALaw), {0x55}, {0x55}},
        {lawFormat(kAudioFormatULaw), {0x55}, {0x55}},
    };
    for (const Case& pcm : cases) {
        SCOPED_TRACE(nameOf(pcm.format));
        VirtualDevice device;
        sayRepeatedly(device, pcm.atDevice);
        OutputUnderTest output(pcm.format);
        const Bytes audio = repeated(pcm.inStream, kFrameCount * pcm.inStream.size());
        // The second buffer begins inside a frame.
        output.enqueue(audio.data(), 1);
        output.enqueue(audio.data() + 1, audio.size() - 1);
        ASSERT_EQ(output.start(), noErr);
        InputUnderTest input(pcm.format);
        input.enqueueNew(1, static_cast<std::uint32_t>(audio.size()));
        ASSERT_EQ(input.start(), noErr);
        device.advance(0.1, settleQueues);
        EXPECT_EQ(output.returnCount(), 2U);
        EXPECT_EQ(device.heard(), repeated(pcm.atDevice, kFrameCount * pcm.atDevice.size()));
        EXPECT_EQ(input.captured(), audio);
    }
}

TEST(AudioQueue, tellsHowLoudItsAudioIs) {
    /// Samples of a format of the device: one that is not loud, and the loudest on both sides.
    struct Case {
        AudioStreamBasicDescription format;
        Sample quiet;
        double quietPeak;
        Sample loud;
    };
    const std::vector<Case> cases = {
        {pcmOf(16), {0, 0xE0}, 8192.0 / 32767, {0xFF, 0x7F, 0, 0x80}},
        {pcmOf(24), {0, 0, 0xE0}, 2097152.0 / 8388607, {0xFF, 0xFF, 0x7F, 0, 0, 0x80}},
        {pcmOf(32),
         {0, 0, 0, 0xE0},
         536870912.0 / 2147483647,
         {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0x80}},
        {pcmOf(32, kFloat), {0, 0, 0x80, 0xBE}, 0.25, {0, 0, 0x80, 0x3F, 0, 0, 0xC0, 0xBF}},
        {pcmOf(16, kSigned | kBig), {0xE0, 0}, 8192.0 / 32767, {0x7F, 0xFF, 0x80, 0}},
        {pcmOf(24, kSigned | kBig),
         {0xE0, 0, 0},
         2097152.0 / 8388607,
         {0x7F, 0xFF, 0xFF, 0x80, 0, 0}},
        {pcmOf(32, kSigned | kBig),
         {0xE0, 0, 0, 0},
         536870912.0 / 2147483647,
         {0x7F, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0}},
        {pcmOf(32, kFloat | kBig), {0xBE, 0x80, 0, 0}, 0.25, {0x3F, 0x80, 0, 0, 0xBF, 0xC0, 0, 0}},
        {pcmOf(8, 0), {0x60}, 32.0 / 127, {0xFF, 0}},
        {lawFormat(kAudioFormatALaw), {0xBA}, 0.5, {0xAA, 0x2A}},
        {lawFormat(kAudioFormatULaw), {0x90}, 15996.0 / 32124, {0x80, 0x00}},
    };
    for (const Case& kind : cases) {
        SCOPED_TRACE(nameOf(kind.format));
        VirtualDevice device;
        OutputUnderTest output(kind.format);
        InputUnderTest input(kind.format);
        input.recycle();
        input.enqueueNew(3, 4800);
        const std::array<const QueueUnderTest*, 2> queues = {&output, &input};
        // A step of the device's clock is 240 frames.
        const auto pass = [&](const Sample& samples) {
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
        const auto askForTheSize = [&] {
            for (const auto* const queue : queues) {
                std::uint32_t size = 0;
                EXPECT_EQ(AudioQueueGetPropertySize(queue->get(), kAudioQueueProperty_Level, &size),
                          noErr);
                AudioQueueLevel level;
                EXPECT_EQ(
                    AudioQueueGetProperty(queue->get(), kAudioQueueProperty_Level, &level, &--size),
                    kAudioQueueErr_InvalidPropertySize);
            }
        };
        ASSERT_EQ(output.start(), noErr);
        ASSERT_EQ(input.start(), noErr);
        // Nobody has asked, so nothing is measured; to ask for its size is not to ask.
        askForTheSize();
        pass(kind.loud);
        expectLevels(0, 0);
        pass(kind.quiet);
        askForTheSize();
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
    std::vector<AudioStreamBasicDescription> formats = wrongPcmFormats();
    formats.insert(formats.end(),
                   {{},
                    pcmFormat(7999, 2),
                    pcmFormat(192001, 2),
                    pcmFormat(48000, 9),
                    pcmOf(16, kFloat),
                    pcmFormat(48000, 2, 16, kSigned | kAudioFormatFlagIsNonInterleaved),
                    sbcFormat(16000, 1, 0, 60)});
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
    AudioQueueRef const out = output.get();
    AudioQueueRef const in = input.get();
    AudioQueueBufferRef buffer = nullptr;
    EXPECT_EQ(AudioQueueAllocateBuffer(out, 0, &buffer), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueAllocateBuffer(out, 16, nullptr), kAudioQueueErr_InvalidParameter);
    buffer = output.allocate(16);

    const auto enqueue = [&](std::uint32_t size,
                             std::vector<AudioStreamPacketDescription> packets) {
        buffer->mAudioDataByteSize = size;
        return AudioQueueEnqueueBuffer(out, buffer, static_cast<std::uint32_t>(packets.size()),
                                       packets.data());
    };
    EXPECT_EQ(enqueue(0, {}), kAudioQueueErr_BufferEmpty);
    EXPECT_EQ(enqueue(17, {}), kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {{-1, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(enqueue(16, {{13, 0, 4}}), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueEnqueueBuffer(out, buffer, 1, nullptr), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueEnqueueBuffer(other.get(), buffer, 0, nullptr),
              kAudioQueueErr_InvalidBuffer);
    EXPECT_EQ(enqueue(16, {}), noErr);
    EXPECT_EQ(enqueue(16, {}), kAudioQueueErr_BufferInQueue);
    // Too small for one frame.
    EXPECT_EQ(AudioQueueEnqueueBuffer(in, input.allocate(3), 0, nullptr),
              kAudioQueueErr_InvalidBuffer);

    const AudioTimeStamp later;
    EXPECT_EQ(AudioQueueStart(out, &later), kAudioQueueErr_InvalidParameter);
    EXPECT_EQ(AudioQueueGetCurrentTime(out, nullptr, nullptr, nullptr),
              kAudioQueueErr_InvalidParameter);

    std::uint32_t size = 0;
    std::uint32_t value = 7;
    EXPECT_EQ(AudioQueueGetProperty(out, kAudioQueueProperty_IsRunning, &value, &size),
              kAudioQueueErr_InvalidPropertySize);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(AudioQueueGetPropertySize(in, kAudioQueueProperty_HasPlayedAll, &size),
              kAudioQueueErr_InvalidProperty);
    EXPECT_EQ(AudioQueueGetPropertySize(out, fourCharCode("what"), &size),
              kAudioQueueErr_InvalidProperty);
    EXPECT_EQ(AudioQueueSetProperty(out, kAudioQueueProperty_MagicCookie, &value, 4),
              kAudioQueueErr_InvalidProperty);
    EXPECT_EQ(AudioQueueGetPropertySize(in, kAudioQueueProperty_MagicCookie, &size), noErr);
    EXPECT_EQ(size, 0U);
    size = sizeof(value);
    EXPECT_EQ(AudioQueueGetProperty(in, kAudioQueueProperty_MagicCookie, &value, &size), noErr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(input.property<AudioStreamBasicDescription>(kAudioQueueProperty_StreamDescription),
              format);
    EXPECT_EQ(input.property<std::uint32_t>(kAudioQueueProperty_MaximumOutputPacketSize), 4U);
}

TEST(AudioQueue, aStartThatFailsLosesNothingAndALostDeviceIsNoEnd) {
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    const std::vector<std::int16_t> audio(4800, 5);
    queue.enqueue(audio);
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
    // That all was played which was there is no end.
    device.unplug();
    settleQueues();
    EXPECT_FALSE(queue.isRunning());
    EXPECT_FALSE(queue.hasPlayedAll());
}

TEST(AudioQueue, countsInterruptionsOfAnEndWhichComesWhenTheDeviceIsClosed) {
    VirtualDevice device;
    std::atomic<bool> wasRunningWhileClosing = false;
    OutputUnderTest queue(pcmFormat(48000, 1));
    // Somebody who sees that a queue has stopped enqueues for the next run: none of that may go
    // back with the old one.
    device.onClosing = [&] { wasRunningWhileClosing = queue.isRunning(); };
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
    EXPECT_TRUE(wasRunningWhileClosing);
    EXPECT_TRUE(queue.hasPlayedAll());
    queue.enqueue(audio);
    EXPECT_FALSE(queue.hasPlayedAll());
    EXPECT_EQ(device.heard().size(), 2 * audio.size());
    EXPECT_EQ(queue.interruptionCount(), 1U);
}

TEST(AudioQueue, hasNotPlayedWhatWasEnqueuedBehindAStop) {
    VirtualDevice device;
    OutputUnderTest queue(pcmFormat(48000, 1));
    queue.onReturn = [&, isFirst = true](AudioQueueBufferRef buffer) mutable {
        if (std::exchange(isFirst, false)) {
            device.advance(0.3);
            std::thread([&] { EXPECT_EQ(queue.stop(true), noErr); }).join();
            EXPECT_TRUE(queue.hasPlayedAll());
            EXPECT_EQ(AudioQueueEnqueueBuffer(queue.get(), buffer, 0, nullptr), noErr);
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
    input.enqueueNew(3, 4800);
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
    for (const auto& returned : queue.returns()) {
        EXPECT_EQ(returned.thread, std::this_thread::get_id());
    }
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

/// A microphone that says the ramp.
void sayRamp(VirtualDevice& device) {
    device.speaker = [said = std::size_t{0}](std::span<std::byte> captured) mutable {
        const auto samples = rampSamples(captured.size() / 2, said);
        said += samples.size();
        std::memcpy(captured.data(), samples.data(), captured.size());
    };
}

TEST(AudioQueue, anApplicationThatIsLateWithItsBuffersFindsTheAudioHeldBack) {
    VirtualDevice device;
    sayRamp(device);
    InputUnderTest queue(pcmFormat(8000, 1));
    queue.enqueueNew(1, 1600);
    ASSERT_EQ(queue.start(), noErr);
    device.advance(3, settleQueues);
    EXPECT_EQ(queue.returnCount(), 1U);
    EXPECT_EQ(queue.interruptionCount(), 1U);
    // 3.5 s are 28000 frames: of the 23200 that there is room for none is missing or out of order.
    queue.enqueueNew(28, 1600);
    device.advance(0.5, settleQueues);
    ASSERT_EQ(queue.stop(true), noErr);
    settleQueues();
    EXPECT_EQ(samplesOf(queue.captured()), rampSamples(23200));
}

TEST(AudioQueue, aStopTakesWhatTheDeviceHoldsBackForALateCallback) {
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
        queue.enqueueNew(2, 200000);
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

TEST(AudioQueue, moreBytesThan32BitsCountEndAtTheRightFrameInTheMemoryThatTheyBeganWith) {
    // The format with the most bytes a second: 2^32 of them in less than twelve minutes.
    constexpr double kRate = 192000;
    constexpr double kSeconds = 720;
    const auto format = pcmFormat(kRate, 8, 32);
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
    device.speaker = [&, said = std::size_t{0}](std::span<std::byte> bytes) mutable {
        for (std::size_t done = 0; done < bytes.size();) {
            const std::size_t size = std::min(bytes.size() - done, audio.size() - said);
            std::memcpy(bytes.data() + done, audio.data() + said, size);
            said = (said + size) % audio.size();
            done += size;
        }
    };
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

    EXPECT_NEAR(input.currentFrame(), kSeconds * kRate, 1);
    EXPECT_NEAR(output.currentFrame(), kSeconds * kRate, 1);
    EXPECT_EQ(heard.byteCount, output.currentFrame() * format.mBytesPerFrame);
    EXPECT_GE(captured.byteCount + audio.size(), input.currentFrame() * format.mBytesPerFrame);
    EXPECT_TRUE(heard.hearsTheRamp);
    EXPECT_TRUE(captured.hearsTheRamp);
    EXPECT_LT(mallinfo2().uordblks, memoryAfterAMinute + 4096);
}

}  // namespace
}  // namespace zav::test
