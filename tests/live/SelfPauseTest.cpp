// A PlaybackSink on real servers whose accessory sends in bursts: it pauses its queue whenever all
// is played, and nothing is lost or heard twice.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/Ramp.hpp"
#include "tests/support/SoundServer.hpp"
#include "tests/support/SpeakerRecorder.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

class SelfPause : public testing::TestWithParam<const char*> {
 protected:
    SoundServer server_{GetParam()};
};

TEST_P(SelfPause, isHeardAsSilenceAndNothingElse) {
    constexpr std::uint32_t kBytesPerFrame = 4;
    constexpr int kBurstCount = 8;
    DiagnosticsLines lines;
    SpeakerRecorder recorder;
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(pcmFormat(48000, 2));
    const auto sink = makeNode<PlaybackSink>(source);
    sink->setQueueBufferSize(480 * kBytesPerFrame);
    sink->autoPlay(0.05);

    std::minstd_rand random(1);
    std::size_t sampleCount = 0;
    source->downstreams().onAudioStreamFlowStart();
    for (int burst = 0; burst < kBurstCount; ++burst) {
        const std::size_t frameCount = 3000 + random() % 4000;
        const auto samples = rampSamples(2 * frameCount, sampleCount);
        sampleCount += samples.size();
        source->downstreams().receiveAudio(samples.data(), frameCount * kBytesPerFrame, frameCount,
                                           nullptr);
        ASSERT_TRUE(waitFor([&] { return sink->paused(); }));
    }
    source->downstreams().onAudioStreamFlowEnd();
    EXPECT_TRUE(waitFor([&] { return !sink->isPlaying(); }));
    EXPECT_EQ(differenceFromRamp(recorder.waitForSamples(sampleCount), sampleCount), "");
    const auto printed = lines.take();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), "Resume playing"), kBurstCount - 1);
}

INSTANTIATE_TEST_SUITE_P(On, SelfPause, testing::Values("pulseaudio", "pipewire"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace zav::test
