// The PCM formats of audio queues, on the virtual device.

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/MonoPcm.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

/// 24 bits in a container of 32, in its low bits unless `flags` align them high.
AudioStreamBasicDescription in32Bits(std::uint32_t flags) {
    auto format = monoPcm(32, flags);
    format.mBitsPerChannel = 24;
    format.mFormatFlags &= ~kAudioFormatFlagIsPacked;
    return format;
}

TEST(AudioQueue, convertsEveryKindOfPcmExactlyInBothDirections) {
    constexpr std::size_t kFrameCount = 480;
    struct Case {
        AudioStreamBasicDescription format;
        SampleBytes inStream;
        SampleBytes atDevice;
    };
    const std::vector<Case> cases = {
        {monoPcm(8), {0x81}, {0x01}},
        {monoPcm(8, 0), {0x81}, {0x81}},
        {monoPcm(16, 0), {0x34, 0x92}, {0x34, 0x12}},
        {monoPcm(16, kBigEndian), {0x92, 0x34}, {0x12, 0x34}},
        {monoPcm(16, kSignedInts | kBigEndian), {0x12, 0x34}, {0x12, 0x34}},
        {monoPcm(24), {1, 2, 0x83}, {1, 2, 0x83}},
        {monoPcm(24, 0), {1, 2, 0x83}, {1, 2, 0x03}},
        {in32Bits(kSignedInts), {1, 2, 0x83, 0xFF}, {1, 2, 0x83}},
        {in32Bits(kSignedInts | kBigEndian), {0, 0x73, 2, 1}, {0x73, 2, 1}},
        {in32Bits(0), {1, 2, 0x83, 0}, {1, 2, 0x03}},
        {in32Bits(kSignedInts | kAudioFormatFlagIsAlignedHigh), {0, 1, 2, 0x83}, {0, 1, 2, 0x83}},
        {monoPcm(32), {1, 2, 3, 4}, {1, 2, 3, 4}},
        {monoPcm(32, kBigEndian), {0x81, 2, 3, 4}, {0x01, 2, 3, 4}},
        // 0.25 and -0.75
        {monoPcm(32, kFloats), {0, 0, 0x80, 0x3E}, {0, 0, 0x80, 0x3E}},
        {monoPcm(64, kFloats), {0, 0, 0, 0, 0, 0, 0xD0, 0x3F}, {0, 0, 0x80, 0x3E}},
        {monoPcm(64, kFloats | kBigEndian), {0xBF, 0xE8, 0, 0, 0, 0, 0, 0}, {0xBF, 0x40, 0, 0}},
        {monoLaw(kAudioFormatALaw), {0x55}, {0x55}},
        {monoLaw(kAudioFormatULaw), {0x55}, {0x55}},
    };
    for (const Case& pcm : cases) {
        SCOPED_TRACE(nameOf(pcm.format));
        VirtualDevice device;
        const Bytes atDevice = repeated(pcm.atDevice, kFrameCount * pcm.atDevice.size());
        device.speakRepeatedly(atDevice);
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
        EXPECT_EQ(device.heard(), atDevice);
        EXPECT_EQ(input.captured(), audio);
    }
}

TEST(AudioQueue, refusesFormatsWhenItIsMade) {
    std::vector<AudioStreamBasicDescription> formats = wrongPcmFormats();
    formats.insert(formats.end(),
                   {{},
                    pcmFormat(7999, 2),
                    pcmFormat(192001, 2),
                    pcmFormat(48000, 9),
                    monoPcm(16, kFloats),
                    pcmFormat(48000, 2, 16, kSignedInts | kAudioFormatFlagIsNonInterleaved),
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

}  // namespace
}  // namespace zav::test
