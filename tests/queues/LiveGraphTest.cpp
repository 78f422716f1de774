// Graphs of the live nodes, on real audio queues and a virtual device.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "ZAVAudioStreaming/codecs/FrameAligner.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"
#include "ZAVAudioStreaming/sources/RecordSource.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/VirtualDevice.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

class LiveGraph : public ::testing::Test {
 protected:
    /// Moves the clock and runs the callbacks that are due.
    void pass(double seconds, std::initializer_list<AudioQueueRef> queues) {
        device_.advance(seconds, [&] { settle(queues); });
    }

    DiagnosticsLines lines_;
    VirtualDevice device_;
};

TEST_F(LiveGraph, recordedAudioIsEncodedByteForByte) {
    constexpr std::size_t kSeconds = 60;
    const Bytes audio = testPcm(16000 * kSeconds);
    device_.speakRepeatedly(audio);
    const auto configuration = std::make_shared<SBCCoding::SBCConfiguration>();
    const auto source = makeNode<RecordSource>(pcmFormat(16000, 1));
    const auto aligner =
        makeNode<FrameAligner>(source, FrameAligner::bytesPerSbcFrame(*configuration));
    const auto encoder = makeNode<SBCEncoder>(aligner, configuration);
    const auto sink = makeNode<RecordingSink>(encoder);
    source->record();
    pass(kSeconds + 1, {source->audioQueueRef()});
    source->stop();
    settle({source->audioQueueRef()});
    EXPECT_EQ(sink->calls.back(), "end");

    Bytes encoded = sink->allBytes();
    const Bytes wanted = SbcLoop(*configuration).encode(audio);
    ASSERT_GE(encoded.size(), wanted.size());
    encoded.resize(wanted.size());
    EXPECT_EQ(encoded, wanted);
}

TEST_F(LiveGraph, theLastReferenceToANodeMayBeDroppedOnAnyThread) {
    const std::jthread clock([&](const std::stop_token& isOver) {
        while (!isOver.stop_requested()) {
            device_.advance(0.005);
            std::this_thread::yield();
        }
    });
    std::mt19937 random(1);
    std::atomic<int> completions = 0;
    constexpr int kRounds = 200;
    for (int round = 0; round < kRounds; ++round) {
        auto source = makeNode<RecordSource>(pcmFormat(8000, 1));
        auto sink = makeNode<PlaybackSink>(source);
        const std::weak_ptr<RecordSource> watched = source;
        sink->setAudioDataAcquireHandler([weak = std::weak_ptr(sink)] {
            if (const auto alive = weak.lock()) {
                alive->paused();
            }
        });
        sink->autoPlay(0.01);
        sink.reset();
        source->record();
        const double until = static_cast<double>(random() % 5) * 0.3;
        ASSERT_TRUE(waitFor([&] { return source->timeStamp() >= until; }, std::this_thread::yield));
        if (round % 3 == 0) {
            source.reset();  // drops a source that records
            ++completions;
        } else {
            auto* const stopping = source.get();
            // The completion holds the last reference.
            stopping->stop([held = std::move(source), &completions]() mutable {
                held.reset();
                ++completions;
            });
        }
        ASSERT_TRUE(waitFor([&] { return watched.expired(); }, std::this_thread::yield));
    }
    EXPECT_TRUE(waitFor([&] { return completions == kRounds; }, std::this_thread::yield));
    // A handler may hold the last reference to a sink, and still be destroying it.
    EXPECT_TRUE(waitFor([&] { return device_.openStreamCount() == 0; }));
}

}  // namespace
}  // namespace zav::test
