// The levels and counts that audio queues report, on the virtual device.

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tests/support/MonoPcm.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav::test {
namespace {

/// An output and an input queue of one format, which play and capture the same samples.
class MeteredQueues {
 public:
    explicit MeteredQueues(const AudioStreamBasicDescription& format)
        : bytesPerStep_(std::size_t{240} * format.mBytesPerFrame), output_(format), input_(format) {
        input_.recycle();
        input_.enqueueNew(3, 4800);
    }

    const OutputUnderTest& output() const { return output_; }
    std::array<const QueueUnderTest*, 2> both() const { return {&output_, &input_}; }

    void start() {
        EXPECT_EQ(output_.start(), noErr);
        EXPECT_EQ(input_.start(), noErr);
    }
    void stop() {
        EXPECT_EQ(output_.stop(true), noErr);
        EXPECT_EQ(input_.stop(true), noErr);
    }

    /// Plays and captures these samples for one step of the device's clock, which is 240 frames.
    void pass(const SampleBytes& samples) {
        const Bytes audio = repeated(samples, bytesPerStep_);
        device_.speakRepeatedly(audio);
        output_.enqueue(audio);
        passStep();
    }
    void passStep() { device_.advance(0.005, settleQueues); }

    void expectLevels(double peak, std::uint64_t clippedSampleCount) const {
        for (const auto* const queue : both()) {
            const AudioQueueLevel level = queue->level();
            EXPECT_DOUBLE_EQ(level.peak, peak);
            EXPECT_EQ(level.clippedSampleCount, clippedSampleCount);
        }
    }
    void readOnlyTheSize() const {
        for (const auto* const queue : both()) {
            std::uint32_t size = 0;
            EXPECT_EQ(AudioQueueGetPropertySize(queue->get(), kAudioQueueProperty_Level, &size),
                      noErr);
            AudioQueueLevel level;
            EXPECT_EQ(
                AudioQueueGetProperty(queue->get(), kAudioQueueProperty_Level, &level, &--size),
                kAudioQueueErr_InvalidPropertySize);
        }
    }

 private:
    const std::size_t bytesPerStep_;
    VirtualDevice device_;
    OutputUnderTest output_;
    InputUnderTest input_;
};

const SampleBytes kQuiet16 = {0, 0xE0};
constexpr double kQuiet16Peak = 8192.0 / 32767;
const SampleBytes kLoud16 = {0xFF, 0x7F, 0, 0x80};

TEST(AudioQueue, reportsThePeakSinceTheLastReading) {
    /// A sample of a device's format that is not loud, and the loudest one of either sign.
    struct Case {
        AudioStreamBasicDescription format;
        SampleBytes quiet;
        double quietPeak;
        SampleBytes loud;
    };
    const std::vector<Case> cases = {
        {monoPcm(16), kQuiet16, kQuiet16Peak, kLoud16},
        {monoPcm(24), {0, 0, 0xE0}, 2097152.0 / 8388607, {0xFF, 0xFF, 0x7F, 0, 0, 0x80}},
        {monoPcm(32),
         {0, 0, 0, 0xE0},
         536870912.0 / 2147483647,
         {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0x80}},
        {monoPcm(32, kFloats), {0, 0, 0x80, 0xBE}, 0.25, {0, 0, 0x80, 0x3F, 0, 0, 0xC0, 0xBF}},
        {monoPcm(16, kSignedInts | kBigEndian), {0xE0, 0}, kQuiet16Peak, {0x7F, 0xFF, 0x80, 0}},
        {monoPcm(24, kSignedInts | kBigEndian),
         {0xE0, 0, 0},
         2097152.0 / 8388607,
         {0x7F, 0xFF, 0xFF, 0x80, 0, 0}},
        {monoPcm(32, kSignedInts | kBigEndian),
         {0xE0, 0, 0, 0},
         536870912.0 / 2147483647,
         {0x7F, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0}},
        {monoPcm(32, kFloats | kBigEndian),
         {0xBE, 0x80, 0, 0},
         0.25,
         {0x3F, 0x80, 0, 0, 0xBF, 0xC0, 0, 0}},
        {monoPcm(8, 0), {0x60}, 32.0 / 127, {0xFF, 0}},
        {monoLaw(kAudioFormatALaw), {0xBA}, 0.5, {0xAA, 0x2A}},
        {monoLaw(kAudioFormatULaw), {0x90}, 15996.0 / 32124, {0x80, 0x00}},
    };
    for (const Case& kind : cases) {
        SCOPED_TRACE(nameOf(kind.format));
        MeteredQueues queues(kind.format);
        queues.start();
        queues.expectLevels(0, 0);
        queues.pass(kind.quiet);
        queues.expectLevels(kind.quietPeak, 0);
        queues.pass(kind.loud);
        queues.pass(kind.quiet);
        queues.expectLevels(1, 240);
        queues.expectLevels(0, 240);
    }
}

TEST(AudioQueue, beginsToMeasureItsLevelWhenThatIsFirstRead) {
    MeteredQueues queues(monoPcm(16));
    queues.start();
    // Reading the size does not count as reading the level.
    queues.readOnlyTheSize();
    queues.pass(kLoud16);
    queues.expectLevels(0, 0);
    queues.pass(kQuiet16);
    queues.readOnlyTheSize();
    queues.expectLevels(kQuiet16Peak, 0);
}

TEST(AudioQueue, keepsTheCountsOfARunUntilTheNextOneBegins) {
    MeteredQueues queues(monoPcm(16));
    queues.start();
    queues.expectLevels(0, 0);
    queues.pass(kLoud16);
    queues.pass(kQuiet16);
    // The output queue runs dry.
    queues.passStep();
    EXPECT_EQ(queues.output().interruptionCount(), 1U);
    queues.stop();
    for (const auto* const queue : queues.both()) {
        EXPECT_EQ(queue->level().clippedSampleCount, 240U);
    }
    EXPECT_EQ(queues.output().interruptionCount(), 1U);
    queues.start();
    queues.expectLevels(0, 0);
    EXPECT_EQ(queues.output().interruptionCount(), 0U);
}

}  // namespace
}  // namespace zav::test
