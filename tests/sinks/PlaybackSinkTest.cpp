#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"

#include <limits>
#include <stdexcept>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ScriptedAudioQueue.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

using Events = std::vector<std::string>;

const std::string kExhausted =
    "Enqueued audio bytes are exhausted, pause playing and resume when more audio bytes are "
    "available.";
const std::string kPaused = "Pause Audio Queue result: 0";
const std::string kStopping = "Stop when the enqueued audio bytes exhaused.";

std::string didEnqueue(std::size_t size) {
    return "[Playback] did enqueue " + std::to_string(size) + " bytes for playback";
}

/// A sink for 16 kHz mono: buffers of 16,384 bytes, enqueued from 8,192 on.
class PlaybackSinkTest : public PushingTest {
 protected:
    static constexpr std::uint32_t kBufferSize = 16384;
    static constexpr std::uint32_t kHalf = kBufferSize / 2;

    PlaybackSinkTest() { make(); }
    void TearDown() override { scriptedQueue().onCall = nullptr; }

    void make(const AudioStreamBasicDescription& format = pcmFormat(16000, 1),
              const std::shared_ptr<PeripheralSource>& source = makeNode<PeripheralSource>()) {
        sink_.reset();
        source_ = source;
        source_->setOutDataFormat(format);
        resetAudioQueue();
        sink_ = makeNode<PlaybackSink>(source_);
        pushed_.clear();
        events_.clear();
        scriptedQueue().onCall = [this](const std::string& call) {
            takeLines();
            if (!call.starts_with("get ") && !call.starts_with("allocate")) {
                events_.push_back(call);
            }
        };
    }

    /// Pushes `size` new bytes.
    void push(std::size_t size, const AudioStreamPacketDescription* descriptions = nullptr,
              std::uint64_t packetNum = 1) {
        const Bytes bytes = testBytes(size, ++seed_);
        pushed_.insert(pushed_.end(), bytes.begin(), bytes.end());
        PushingTest::push(bytes, packetNum, descriptions);
    }

    /// The calls of the queue and the printed lines since the last call, in their order.
    Events events() {
        takeLines();
        return std::exchange(events_, {});
    }

    DiagnosticsLines lines_;
    std::uint32_t seed_ = 0;
    Bytes pushed_;
    std::shared_ptr<PlaybackSink> sink_;

 private:
    void takeLines() {
        for (std::string& line : lines_.take()) {
            events_.push_back(std::move(line));
        }
    }

    Events events_;
};

TEST_F(PlaybackSinkTest, ignoresAllAudioWhenItsQueueCannotBeMade) {
    source_ = makeNode<PeripheralSource>();
    scriptedQueue().failures["newOutput"] = kAudioFormatUnsupportedDataFormatError;
    expectThrown(AudioQueueError::failure(kAudioFormatUnsupportedDataFormatError),
                 [&] { makeNode<PlaybackSink>(source_); });
    ASSERT_EQ(source_->downstreams().size(), 1U);
    start();
    push(2 * kBufferSize);
    end();
    EXPECT_EQ(events(), Events{"newOutput"});
}

/// Sets a property before the sink has a queue.
class SinkWithSmallBuffers : public PlaybackSink {
 public:
    SinkWithSmallBuffers(NodeKey key, const std::shared_ptr<AudioStreamOutputable>& upstream)
        : PlaybackSink(key, upstream) {
        setQueueBufferSize(100);
    }
};

TEST_F(PlaybackSinkTest, takesItsSizeInTheConstructorOfADerivedClass) {
    source_ = makeNode<PeripheralSource>();
    const auto sink = makeNode<SinkWithSmallBuffers>(source_);
    push(100);
    EXPECT_EQ(events(), (Events{"newOutput", "enqueue", didEnqueue(100)}));
}

TEST_F(PlaybackSinkTest, enqueuesBuffersThatAreHalfFull) {
    auto& queue = scriptedQueue();
    push(0);
    EXPECT_EQ(queue.calls, Events{"newOutput"});
    EXPECT_EQ(queue.format, sink_->inDataFormat());
    push(kHalf - 1);
    EXPECT_EQ(queue.calls.back(), "allocate 16384");
    EXPECT_EQ(sink_->idleBufferCount(), 1U);
    EXPECT_EQ(events(), Events{});

    push(1);
    push(2 * kBufferSize + 100);
    EXPECT_EQ(sink_->allocatedBufferCount(), 4U);
    EXPECT_EQ(sink_->idleBufferCount(), 1U);
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(kHalf), "enqueue", didEnqueue(kBufferSize),
                                "enqueue", didEnqueue(kBufferSize)}));
}

TEST_F(PlaybackSinkTest, fillsPlayedBuffersAgainBehindTheOneWithTheRest) {
    auto& queue = scriptedQueue();
    push(2 * kBufferSize + 100);
    sink_->play();
    queue.handBackAll();
    EXPECT_EQ(sink_->idleBufferCount(), 3U);
    push(kBufferSize);
    push(kBufferSize);
    queue.handBackAll();
    EXPECT_EQ(sink_->allocatedBufferCount(), 3U);
    EXPECT_GT(queue.played.size(), 3 * kBufferSize);
    pushed_.resize(queue.played.size());
    EXPECT_EQ(queue.played, pushed_);
}

TEST_F(PlaybackSinkTest, passesOnThePacketDescriptionsOfTheChunk) {
    const AudioStreamPacketDescription descriptions[3] = {};
    push(100);
    push(2 * kBufferSize, descriptions, 3);
    push(kHalf);
    EXPECT_EQ(events(), (Events{"enqueue 3 packets", didEnqueue(kBufferSize), "enqueue 3 packets",
                                didEnqueue(kBufferSize), "enqueue", didEnqueue(100 + kHalf)}));
    EXPECT_EQ(scriptedQueue().descriptions, (std::vector<const AudioStreamPacketDescription*>{
                                                descriptions, descriptions, nullptr}));
    EXPECT_DEATH(push(kBufferSize, descriptions, std::uint64_t{1} << 32U),
                 "Fatal error: Not enough bits");
}

TEST_F(PlaybackSinkTest, keepsABufferThatTheQueueRefuses) {
    auto& queue = scriptedQueue();
    push(kBufferSize);
    queue.failures["enqueue"] = kAudioQueueErr_NoMemory;
    push(kBufferSize + 100);  // the rest behind the refused buffer is dropped
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(kBufferSize), "enqueue"}));
    EXPECT_EQ(sink_->allocatedBufferCount(), 2U);
    queue.failures.clear();
    push(kHalf);
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(kBufferSize), "enqueue", didEnqueue(kHalf)}));
    sink_->play();
    queue.handBackAll();
    pushed_.erase(pushed_.begin() + 2 * kBufferSize, pushed_.begin() + 2 * kBufferSize + 100);
    EXPECT_EQ(queue.played, pushed_);
}

TEST_F(PlaybackSinkTest, dropsARestThatTheQueueRefusesAtFlowEnd) {
    push(100);
    scriptedQueue().failures["enqueue"] = kAudioQueueErr_NoMemory;
    end();
    EXPECT_EQ(sink_->idleBufferCount(), 0U);
    EXPECT_EQ(sink_->allocatedBufferCount(), 1U);
}

TEST_F(PlaybackSinkTest, sizesItsBuffersForHalfASecond) {
    const auto sizeFor = [&](double rate, std::uint32_t framesPerPacket, std::uint32_t packetSize) {
        auto format = pcmFormat(rate, 1);
        format.mFramesPerPacket = framesPerPacket;
        make(format);
        scriptedQueue().setProperty(kAudioQueueProperty_MaximumOutputPacketSize, packetSize);
        return sink_->queueBufferSize();
    };
    EXPECT_EQ(sizeFor(16000, 1, 2), 0x4000U);
    EXPECT_EQ(sizeFor(48000, 1, 4), 96000U);
    EXPECT_EQ(sizeFor(44100, 1024, 1000), 21000U);  // 21.5 packets
    EXPECT_EQ(sizeFor(192000, 1, 16), 0x50000U);
    EXPECT_EQ(sizeFor(44100, 20000, 400000), 400000U);
    EXPECT_EQ(sizeFor(44100, 0, 1000), 0x50000U);
    EXPECT_EQ(sizeFor(44100, 0, 400000), 400000U);
    EXPECT_EQ(sizeFor(-1, 1, 2), 0x4000U);
    EXPECT_DEATH(sizeFor(-2, 1, 2), "Fatal error: Not enough bits");
    EXPECT_DEATH(sizeFor(std::numeric_limits<double>::infinity(), 1, 2),
                 "Fatal error: Not enough bits");
    EXPECT_DEATH(sizeFor(1e9, 1, 16), "Fatal error: Arithmetic overflow");
}

TEST_F(PlaybackSinkTest, keepsTheSizeThatItComputedFirst) {
    make(pcmFormat(48000, 1));
    scriptedQueue().failures["get xops"] = -1;
    EXPECT_EQ(sink_->queueBufferSize(), 96000U);  // packets of 4 bytes
    EXPECT_DEATH(sink_->maxPacketNumForBuffer(), "Fatal error: The audio queue does not report");
    scriptedQueue().failures.clear();
    scriptedQueue().setProperty(kAudioQueueProperty_MaximumOutputPacketSize, 7U);
    EXPECT_EQ(sink_->queueBufferSize(), 96000U);
    EXPECT_EQ(sink_->maxPacketNumForBuffer(), 13714U);
    scriptedQueue().setProperty(kAudioQueueProperty_MaximumOutputPacketSize, 0U);
    EXPECT_DEATH(sink_->maxPacketNumForBuffer(), "Fatal error: Division by zero");
}

TEST_F(PlaybackSinkTest, usesANewSizeForNewBuffers) {
    sink_->setQueueBufferSize(100);
    push(120);
    EXPECT_EQ(scriptedQueue().calls.back(), "allocate 100");
    EXPECT_EQ(sink_->allocatedBufferCount(), 2U);
    // The second buffer holds 20 bytes and can never be half of the new size.
    sink_->setQueueBufferSize(1000);
    push(600);
    EXPECT_EQ(std::ranges::count(scriptedQueue().calls, "allocate 1000"), 1);
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(100), "enqueue", didEnqueue(100), "enqueue",
                                didEnqueue(520)}));
}

TEST_F(PlaybackSinkTest, throwsTheStatusOfAStartOrStopThatFails) {
    scriptedQueue().failures = {{"start", kAudioQueueErr_InvalidDevice},
                                {"stop", kAudioQueueErr_DisposalPending}};
    expectThrown(AudioQueueError::failure(kAudioQueueErr_InvalidDevice), [&] { sink_->play(); });
    expectThrown(AudioQueueError::failure(kAudioQueueErr_DisposalPending), [&] { sink_->stop(); });
}

TEST_F(PlaybackSinkTest, playsUntilItIsStopped) {
    sink_->play();
    EXPECT_TRUE(sink_->isPlaying());
    EXPECT_DEATH(sink_->autoPlay(1), "Fatal error: autoPlay comes too late");
    scriptedQueue().sampleTime = 4000;
    EXPECT_EQ(sink_->timeStamp(), 0.25);
    EXPECT_EQ(scriptedQueue().calls.back(), "time");
    sink_->stop();
    EXPECT_FALSE(sink_->isPlaying());
}

TEST_F(PlaybackSinkTest, refusesToPlayWhileAutoPlayIsPending) {
    sink_->autoPlay(1);
    EXPECT_DEATH(sink_->play(), "^Fatal error: : file PlaybackSink.cpp");
    sink_->stop();
    EXPECT_EQ(sink_->delayPlaySchedule(), std::nullopt);
    sink_->play();
}

TEST_F(PlaybackSinkTest, stopsTheProcessWhenTheQueueCannotReportOrAllocate) {
    scriptedQueue().failures = {{"get aqrn", -1}, {"time", -1}, {"allocate", -1}};
    EXPECT_DEATH(sink_->isPlaying(), "^Fatal error: The audio queue does not report");
    EXPECT_DEATH(sink_->hasPlayedAll(), "^Fatal error: The audio queue does not report");
    EXPECT_DEATH(sink_->autoPlay(1), "^Fatal error: The audio queue does not report");
    EXPECT_DEATH(end(), "^Fatal error: The audio queue does not report");
    EXPECT_DEATH(sink_->timeStamp(), "^Fatal error: The audio queue does not report");
    EXPECT_DEATH(push(1), "^Fatal error: Can not allocate buffer: file PlaybackSink.cpp");
}

TEST_F(PlaybackSinkTest, startsByItselfWhenEnoughAudioIsEnqueued) {
    const auto isStarted = [] { return scriptedQueue().isRunning; };
    sink_->autoPlay(0.5);  // 16,000 bytes
    push(kHalf);
    EXPECT_EQ(sink_->delayPlaySchedule(), 0.5);
    push(kHalf - 1);  // waits in its buffer
    push(0);
    EXPECT_FALSE(isStarted());
    push(kHalf);
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(sink_->delayPlaySchedule(), std::nullopt);
    push(kBufferSize);
    EXPECT_EQ(std::ranges::count(scriptedQueue().calls, "start"), 1);

    make();
    sink_->autoPlay(static_cast<double>(kHalf) / 32000);
    push(kHalf);
    EXPECT_TRUE(isStarted());  // at exactly the delay
}

TEST_F(PlaybackSinkTest, startsCompressedAudioWithTheFirstBuffer) {
    make(opusFormat(16000, 1));
    sink_->autoPlay(10);
    push(0x50000 / 2);
    EXPECT_TRUE(scriptedQueue().isRunning);
}

TEST_F(PlaybackSinkTest, stopsTheProcessWhenTheScheduleExceeds32Bits) {
    sink_->autoPlay(1);
    push(kHalf);
    scriptedQueue().enqueued.front()->mAudioDataByteSize = UINT32_MAX;
    EXPECT_DEATH(push(kHalf), "Fatal error: Not enough bits");

    make(pcmFormat(4294967296.0, 1));
    sink_->setQueueBufferSize(100);
    sink_->autoPlay(1);
    EXPECT_DEATH(push(100), "Fatal error: Not enough bits");
    source_->setOutDataFormat(pcmFormat(4294967295.0, 1));
    EXPECT_DEATH(push(100), "Fatal error: Arithmetic overflow");
}

TEST_F(PlaybackSinkTest, resumesWithTheNextBufferAfterItRanDry) {
    auto& queue = scriptedQueue();
    sink_->play();
    push(2 * kBufferSize);
    queue.handBack();
    EXPECT_EQ(events(), (Events{"start", "enqueue", didEnqueue(kBufferSize), "enqueue",
                                didEnqueue(kBufferSize)}));
    queue.handBack();
    EXPECT_TRUE(sink_->paused());
    EXPECT_TRUE(sink_->isPlaying());
    EXPECT_EQ(events(), (Events{kExhausted, "pause", kPaused}));
    push(kHalf - 1);
    EXPECT_TRUE(sink_->paused());
    push(kBufferSize);
    EXPECT_FALSE(sink_->paused());
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(kBufferSize), "start", "Resume playing"}));
    queue.failures["pause"] = kAudioQueueErr_CannotStart;
    queue.handBackAll();
    EXPECT_EQ(events(), (Events{kExhausted, "pause", "Pause Audio Queue result: -66681"}));
    EXPECT_TRUE(sink_->paused());

    // To resume does not need the upstream.
    EXPECT_EQ(sink_->upstream(), source_);
    source_.reset();
    const Bytes last(kBufferSize);
    sink_->receiveAudio(last.data(), last.size(), 1, nullptr);
    EXPECT_FALSE(sink_->paused());
}

TEST_F(PlaybackSinkTest, doesNotPauseForBuffersThatAStopGivesBack) {
    sink_->play();
    push(kBufferSize);
    sink_->stop();
    events();
    scriptedQueue().handBackAll();
    EXPECT_EQ(sink_->idleBufferCount(), 1U);
    EXPECT_EQ(events(), Events{});
}

/// The sink asks for the format after it has enqueued a buffer, before it decides about the start.
class SourceThatIsAsked : public PeripheralSource {
 public:
    using PeripheralSource::PeripheralSource;
    AudioStreamBasicDescription outDataFormat() const override {
        std::exchange(onQuestion, [] {})();
        return PeripheralSource::outDataFormat();
    }
    mutable std::function<void()> onQuestion = [] {};
};

TEST_F(PlaybackSinkTest, staysPausedWhenTheNewBufferHasBeenPlayedMeanwhile) {
    const auto source = makeNode<SourceThatIsAsked>();
    make(pcmFormat(16000, 1), source);
    sink_->setQueueBufferSize(kBufferSize);
    sink_->autoPlay(10);  // without a schedule the sink would not ask for the format
    ASSERT_EQ(AudioQueueStart(sink_->audioQueueRef(), nullptr), noErr);
    events();
    source->onQuestion = [] { scriptedQueue().handBackAll(); };
    push(kBufferSize);
    EXPECT_EQ(events(), (Events{"enqueue", didEnqueue(kBufferSize), kExhausted, "pause", kPaused}));
    EXPECT_TRUE(sink_->paused());
    push(kBufferSize);
    EXPECT_FALSE(sink_->paused());
}

TEST_F(PlaybackSinkTest, stopsAfterTheRestAtFlowEnd) {
    start();
    sink_->play();
    push(kBufferSize + 100);
    events();
    end();
    EXPECT_EQ(events(), (Events{"Stream ended", "enqueue", kStopping, "stop when played"}));
    EXPECT_TRUE(sink_->isPlaying());
    scriptedQueue().handBackAll();
    EXPECT_FALSE(sink_->isPlaying());
    EXPECT_EQ(scriptedQueue().played, pushed_);
    EXPECT_EQ(events(), Events{});
}

TEST_F(PlaybackSinkTest, resumesForTheRestAtFlowEnd) {
    sink_->play();
    push(kBufferSize + 100);
    scriptedQueue().handBack();
    events();
    end();
    EXPECT_EQ(events(), (Events{"Stream ended", "enqueue", "Resume playing the last remained bytes",
                                "start", kStopping, "stop when played"}));
    EXPECT_TRUE(sink_->paused());
    scriptedQueue().handBackAll();
    EXPECT_EQ(scriptedQueue().played, pushed_);
    EXPECT_FALSE(sink_->isPlaying());
}

TEST_F(PlaybackSinkTest, stopsAtOnceAtFlowEndWhenItIsPausedWithoutARest) {
    sink_->play();
    push(kBufferSize);
    scriptedQueue().handBackAll();
    EXPECT_TRUE(sink_->paused());
    events();
    end();
    EXPECT_EQ(events(), (Events{"Stream ended", kStopping, "stop when played"}));
    EXPECT_FALSE(sink_->isPlaying());
}

TEST_F(PlaybackSinkTest, givesBackBuffersUnplayedAtTheEndOfAFlowThatNeverStarted) {
    push(kBufferSize);
    events();
    end();
    EXPECT_EQ(events(), (Events{"Stream ended", kStopping, "stop when played"}));
    EXPECT_EQ(scriptedQueue().returningCount, 1U);
}

TEST_F(PlaybackSinkTest, playsAFlowThatIsTooShortForItsSchedule) {
    sink_->autoPlay(10);
    end();
    EXPECT_EQ(events(), Events{"Stream ended"});
    push(100);
    end();
    EXPECT_EQ(events(), (Events{"Stream ended", "enqueue", "Start playing due to audio stream end",
                                "start", "stop when played"}));
    EXPECT_EQ(sink_->delayPlaySchedule(), 10.0);
    scriptedQueue().handBackAll();
    EXPECT_EQ(scriptedQueue().played, pushed_);
    EXPECT_FALSE(sink_->isPlaying());
}

TEST_F(PlaybackSinkTest, asksForMoreWhenABufferHasBeenPlayed) {
    EXPECT_EQ(sink_->audioDataAcquireHandler(), nullptr);
    int callCount = 0;
    // The handler may call every function of the sink.
    sink_->setAudioDataAcquireHandler([&] {
        ++callCount;
        push(kBufferSize);
        EXPECT_FALSE(sink_->paused());
        sink_->setAudioDataAcquireHandler([&] {
            ++callCount;
            sink_->stop();
            sink_->autoPlay(1);
            throw std::runtime_error("nothing more");
        });
    });
    EXPECT_NE(sink_->audioDataAcquireHandler(), nullptr);
    push(kBufferSize);
    sink_->play();
    scriptedQueue().handBack();
    EXPECT_EQ(callCount, 1);
    EXPECT_EQ(std::ranges::count(scriptedQueue().calls, "start"), 2);
    push(kBufferSize);
    scriptedQueue().handBack();
    EXPECT_EQ(callCount, 2);
    EXPECT_FALSE(sink_->isPlaying());
    EXPECT_EQ(sink_->delayPlaySchedule(), 1.0);
    scriptedQueue().handBack();  // the stop gives this one back, so the handler is not called
    EXPECT_EQ(callCount, 2);
}

TEST_F(PlaybackSinkTest, ignoresBuffersAfterItsHandlerHasDroppedIt) {
    const std::weak_ptr<PlaybackSink> watch = sink_;
    scriptedQueue().onCall = [callback = scriptedQueue().outputCallback](const std::string& call) {
        if (call == "dispose") {  // the disposal waits for this callback
            callback(nullptr, scriptedQueue().enqueued[0]);
        }
    };
    sink_->setAudioDataAcquireHandler([&] {
        sink_.reset();
        source_.reset();
        EXPECT_FALSE(watch.expired());
    });
    sink_->play();
    push(2 * kBufferSize);
    scriptedQueue().handBack();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(scriptedQueue().calls.back(), "dispose");
}

// The callback's thread pauses a queue that has run dry, while the pushing thread enqueues. No
// buffer may stay in a paused queue, and the lines come in the order of the events.
TEST_F(PlaybackSinkTest, losesNoAudioHoweverPausesMeetPushes) {
    for (std::uint32_t round = 0; round < 100; ++round) {
        make();
        scriptedQueue().onCall = nullptr;
        sink_->setQueueBufferSize(64);
        const auto device = scriptedQueue().startDevice([] { scriptedQueue().handBack(); });
        if (round % 2 == 0) {
            sink_->play();
        } else {
            sink_->autoPlay(0.01);
        }
        for (std::size_t i = 0; i < 200; ++i) {
            push(1 + (round * 7 + i * 31) % 150);
        }
        // Everything that was enqueued is played without any further push.
        const auto allIsBack = [&] {
            return sink_->idleBufferCount() == sink_->allocatedBufferCount();
        };
        ASSERT_TRUE(waitFor(allIsBack)) << "round " << round;
        end();
        ASSERT_TRUE(waitFor([&] { return !sink_->isPlaying() && allIsBack(); })) << round;
        ASSERT_TRUE(scriptedQueue().played == pushed_) << "round " << round;

        Events lines = lines_.take();
        std::erase_if(lines, [](const std::string& line) {
            return line != kExhausted && line != kPaused && !line.starts_with("Resume playing");
        });
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const std::string expected[] = {kExhausted, kPaused, "Resume playing"};
            ASSERT_TRUE(lines[i].starts_with(expected[i % 3])) << "round " << round << ": " << i;
        }
    }
}

}  // namespace
}  // namespace zav::test
