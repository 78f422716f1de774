#include "ZAVAudioStreaming/sources/RecordSource.hpp"

#include <atomic>
#include <limits>
#include <thread>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/NodeTest.hpp"
#include "tests/support/ScriptedAudioQueue.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

class RecordSourceTest : public testing::Test {
 protected:
    RecordSourceTest() { resetAudioQueue(); }
    void TearDown() override { scriptedQueue().onCall = nullptr; }

    /// A new source with one target, whose calls and completions gather in `events_`.
    void make(const AudioStreamBasicDescription& format = pcmFormat(16000, 1)) {
        source_.reset();
        resetAudioQueue();
        events_.clear();
        source_ = makeNode<RecordSource>(format);
        target_ = makeNode<RecordingSink>(source_);
        target_->onCall = [this](const std::string& call) { events_.push_back(call); };
        scriptedQueue().calls.clear();
    }

    auto completion(const std::string& name = "completion") {
        return [this, name] { events_.push_back(name); };
    }

    /// A new source that records.
    void makeRecording() {
        make();
        source_->record();
    }

    /// The device goes away.
    static void loseDevice() {
        scriptedQueue().isRunning = false;
        scriptedQueue().handBackAll();
    }

    DiagnosticsLines lines_;
    Calls events_;
    std::shared_ptr<RecordSource> source_;
    std::shared_ptr<RecordingSink> target_;
};

TEST_F(RecordSourceTest, makesAStoppedQueueWithThreeBuffers) {
    auto& queue = scriptedQueue();
    source_ = makeNode<RecordSource>(pcmFormat(16000, 1));
    EXPECT_EQ(queue.calls, (Calls{"newInput", "get aqft without room", "allocate 16000", "enqueue",
                                  "allocate 16000", "enqueue", "allocate 16000", "enqueue"}));
    EXPECT_EQ(queue.format, pcmFormat(16000, 1));
    EXPECT_EQ(queue.descriptions, (decltype(queue.descriptions)(3)));
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(16000, 1));
    EXPECT_EQ(source_->idleQueueBufferCount(), 0U);
    EXPECT_NE(source_->audioQueueRef(), nullptr);
    EXPECT_FALSE(source_->isRecording());
    EXPECT_EQ(lines_.take(), Calls{});
}

// The source gives the queue no room for the format, and takes the answer regardless.
TEST_F(RecordSourceTest, takesAFormatThatTheQueueHasCompleted) {
    auto& queue = scriptedQueue();
    queue.setProperty(kAudioQueueProperty_StreamDescription, pcmFormat(48000, 2));
    source_ = makeNode<RecordSource>(pcmFormat(16000, 1));
    EXPECT_EQ(source_->outDataFormat(), pcmFormat(48000, 2));
    EXPECT_EQ(queue.calls.end()[-2], "allocate 96000");
}

TEST_F(RecordSourceTest, throwsWhenItsQueueOrABufferCannotBeMade) {
    const auto makeSource = [] { makeNode<RecordSource>(pcmFormat(16000, 1)); };
    auto& queue = scriptedQueue();
    queue.failures["newInput"] = kAudioFormatUnsupportedDataFormatError;
    expectThrown(AudioQueueError::failure(kAudioFormatUnsupportedDataFormatError), makeSource);
    EXPECT_EQ(queue.calls, Calls{"newInput"});
    queue.failures = {{"allocate", kAudioQueueErr_NoMemory}};
    expectThrown(AudioQueueError::failure(noErr), makeSource);
    EXPECT_EQ(queue.calls.back(), "dispose");
    queue.failures = {{"enqueue", kAudioQueueErr_InvalidBuffer}};
    makeSource();
    EXPECT_EQ(std::ranges::count(queue.calls, "enqueue"), 3);
}

TEST_F(RecordSourceTest, sizesItsBuffersForHalfASecondOfPackets) {
    const auto sizeFor = [](double rate, std::uint32_t bytesPerPacket) {
        auto format = pcmFormat(rate, 1);
        format.mBytesPerPacket = bytesPerPacket;
        return makeNode<RecordSource>(format)->queueBufferSize();
    };
    EXPECT_EQ(sizeFor(11025, 1), 5513U);
    EXPECT_EQ(sizeFor(48000, 4), 96000U);
    EXPECT_EQ(sizeFor(327680, 2), 0x50000U);
    EXPECT_EQ(sizeFor(192000, 32), 0x50000U);
    scriptedQueue().setProperty(kAudioQueueProperty_MaximumOutputPacketSize, 6U);
    EXPECT_EQ(sizeFor(16000, 0), 48000U);
    EXPECT_DEATH(sizeFor(-16000, 2), "Fatal error: Not enough bits");
    EXPECT_DEATH(sizeFor(4294967296.0, 2), "Fatal error: Not enough bits");
    EXPECT_DEATH(sizeFor(std::numeric_limits<double>::quiet_NaN(), 2),
                 "Fatal error: Not enough bits");
}

TEST_F(RecordSourceTest, startsTheFlowAfterTheQueue) {
    make();
    scriptedQueue().failures["start"] = kAudioQueueErr_InvalidDevice;
    expectThrown(AudioQueueError::failure(kAudioQueueErr_InvalidDevice),
                 [&] { source_->record(); });
    EXPECT_EQ(events_, Calls{});
    scriptedQueue().failures.clear();
    scriptedQueue().onCall = [&](const std::string& call) { events_.push_back("queue " + call); };
    source_->record();
    scriptedQueue().onCall = nullptr;
    EXPECT_EQ(events_, (Calls{"queue start", "start"}));
    EXPECT_EQ(lines_.take(), (Calls{"Start recording", "Start recording"}));
    EXPECT_TRUE(source_->isRecording());
}

TEST_F(RecordSourceTest, givesBackTheBuffersThatItHasPushed) {
    makeRecording();
    auto& queue = scriptedQueue();
    const auto first = queue.enqueued;
    queue.handBack(testBytes(1001));
    EXPECT_EQ(target_->chunks.back().bytes, testBytes(1001));
    EXPECT_EQ(target_->chunks.back().packetNum, 500U);
    EXPECT_FALSE(target_->chunks.back().hasDescriptions);
    EXPECT_EQ(source_->idleQueueBufferCount(), 0U);
    EXPECT_EQ(queue.enqueued, (std::deque{first[1], first[2], first[0]}));

    const std::vector<AudioStreamPacketDescription> descriptions = {{0, 0, 3}, {3, 0, 7}};
    queue.handBack(testBytes(10), descriptions);
    EXPECT_EQ(target_->chunks.back().packetNum, 2U);
    EXPECT_EQ(target_->chunks.back().descriptions, descriptions);

    queue.handBack();  // empty
    EXPECT_EQ(target_->chunks.size(), 2U);
    EXPECT_EQ(queue.enqueued.size(), 3U);
}

TEST_F(RecordSourceTest, endsTheFlowWhenAllBuffersAreBack) {
    makeRecording();
    lines_.take();
    source_->stop(completion());
    EXPECT_EQ(scriptedQueue().calls.back(), "stop");
    scriptedQueue().handBack(testBytes(100));
    scriptedQueue().handBack();
    EXPECT_EQ(source_->idleQueueBufferCount(), 2U);
    EXPECT_EQ(events_, (Calls{"start", "audio"}));
    scriptedQueue().handBack();
    EXPECT_EQ(source_->idleQueueBufferCount(), 3U);
    EXPECT_EQ(events_, (Calls{"start", "audio", "end", "completion"}));
    const std::string notPlaying = "[RecordSource] recording is not playing";
    EXPECT_EQ(lines_.take(), (Calls{"Stop recording", notPlaying, notPlaying, notPlaying,
                                    "[RecordSource] recording is stopped"}));
}

TEST_F(RecordSourceTest, keepsItsBuffersInASecondRecording) {
    makeRecording();
    source_->stop();
    scriptedQueue().handBackAll();
    source_->record();
    EXPECT_TRUE(scriptedQueue().enqueued.empty());
    EXPECT_EQ(source_->idleQueueBufferCount(), 3U);
}

TEST_F(RecordSourceTest, runsTheCompletionOfTheLastStopBeforeTheFlowEnd) {
    makeRecording();
    source_->stop(completion("first"));
    scriptedQueue().failures["stop"] = kAudioQueueErr_DisposalPending;
    expectThrown(AudioQueueError::failure(kAudioQueueErr_DisposalPending),
                 [&] { source_->stop(completion("failed")); });
    scriptedQueue().failures.clear();
    source_->stop(completion("second"));
    scriptedQueue().handBackAll();
    EXPECT_EQ(events_, (Calls{"start", "end", "second"}));

    makeRecording();
    source_->stop(completion());
    source_->stop();
    scriptedQueue().handBackAll();
    EXPECT_EQ(events_, (Calls{"start", "end"}));
}

TEST_F(RecordSourceTest, runsTheCompletionWhereverTheBuffersComeBack) {
    const auto stop = [&](bool isATarget, const std::function<void()>& duringTheStop) {
        makeRecording();
        scriptedQueue().onCall = [=](const std::string& call) {
            if (call == "stop") {
                duringTheStop();
            }
        };
        target_->onCall = [=, this](const std::string& call) {
            events_.push_back(call);
            if (call == "audio" && isATarget) {
                source_->stop(completion());
            }
        };
        scriptedQueue().handBack(testBytes(100));
        if (!isATarget) {
            source_->stop(completion());
        }
        scriptedQueue().handBackAll();
        EXPECT_EQ(events_, (Calls{"start", "audio", "end", "completion"}));
        EXPECT_EQ(source_->idleQueueBufferCount(), 3U);
    };
    const auto handBackAll = [] { scriptedQueue().handBackAll(); };
    stop(true, [] {});
    stop(true, handBackAll);
    stop(false, [] {});
    stop(false, handBackAll);
    stop(false, [&] { std::thread(handBackAll).join(); });
}

TEST_F(RecordSourceTest, completesAStopInsideTheCallAfterTheDeviceWasLost) {
    makeRecording();
    loseDevice();
    EXPECT_EQ(events_, (Calls{"start", "end"}));
    source_->stop(completion());
    EXPECT_EQ(events_.back(), "completion");
    source_->stop();
}

TEST_F(RecordSourceTest, getsBackABufferThatItEnqueuedAfterTheStop) {
    makeRecording();
    // Another thread stops the queue after it has reported that it runs.
    scriptedQueue().onCall = [&](const std::string& call) {
        if (call == "get aqrn") {
            scriptedQueue().onCall = nullptr;
            std::thread([&] { source_->stop(completion()); }).join();
        }
    };
    scriptedQueue().handBack(testBytes(100));
    while (scriptedQueue().returningCount > 0) {
        scriptedQueue().handBack();
    }
    EXPECT_EQ(events_, (Calls{"start", "audio", "end", "completion"}));
}

TEST_F(RecordSourceTest, ignoresBuffersAfterATargetOrACompletionHasDroppedIt) {
    for (const std::string place : {"start", "audio", "end", "completion", "late completion"}) {
        SCOPED_TRACE(place);
        make();
        const std::weak_ptr<RecordSource> watch = source_;
        const auto dropAt = [&, watch](const std::string& call) {
            if (call == place) {
                source_.reset();
                EXPECT_FALSE(watch.expired());
            }
        };
        target_->onCall = dropAt;
        scriptedQueue().onCall = [](const std::string& call) {
            if (call == "dispose" &&
                !scriptedQueue().enqueued.empty()) {  // it waits for this callback
                scriptedQueue().handBack(testBytes(100));
            }
        };
        source_->record();
        if (place != "start") {
            scriptedQueue().handBack(testBytes(100));
        }
        if (place == "completion") {
            source_->stop([&] { dropAt(place); });
        }
        if (source_ != nullptr) {
            loseDevice();
        }
        if (place == "late completion") {
            source_->stop([&] { dropAt(place); });
        }
        EXPECT_TRUE(watch.expired());
        EXPECT_EQ(scriptedQueue().calls.back(), "dispose");
        EXPECT_EQ(target_->chunks.size(), place == "start" ? 0U : 1U);
    }
}

TEST_F(RecordSourceTest, reportsTheTimeOrCookieOfItsQueue) {
    make(pcmFormat(44100, 2));
    scriptedQueue().sampleTime = 22050;
    EXPECT_EQ(source_->timeStamp(), 0.5);
    EXPECT_EQ(scriptedQueue().calls.back(), "time");
    EXPECT_TRUE(source_->magicCookie().empty());
    scriptedQueue().properties[kAudioQueueProperty_MagicCookie] = testBytes(39);
    EXPECT_EQ(source_->magicCookie(), testBytes(39));
    EXPECT_EQ(scriptedQueue().calls.back(), "get aqmc");
    scriptedQueue().failures["get aqmc"] = -1;
    EXPECT_EQ(source_->magicCookie(), Bytes(39));
}

TEST_F(RecordSourceTest, stopsTheProcessAtFixedPositions) {
    makeRecording();
    auto& failures = scriptedQueue().failures;
    failures = {{"get aqrn", -1}, {"time", -1}, {"size of aqmc", -1}};
    EXPECT_DEATH(source_->isRecording(), "^Fatal error: : file RecordSource, line 174\n");
    EXPECT_DEATH(source_->timeStamp(), "^Fatal error: : file RecordSource, line 184\n");
    EXPECT_DEATH(source_->magicCookie(), "^Fatal error: : file RecordSource, line 195\n");
    EXPECT_DEATH(scriptedQueue().handBack(), "^Fatal error: : file RecordSource, line 174\n");
    failures = {{"enqueue", kAudioQueueErr_InvalidBuffer}};
    EXPECT_DEATH(scriptedQueue().handBack(), "^Fatal error: : file RecordSource, line 33\n");
    failures.clear();
    const auto callWithoutASource = [] {
        scriptedQueue().userData = nullptr;
        scriptedQueue().handBack();
    };
    EXPECT_DEATH(callWithoutASource(), "^Fatal error: A queue's callback came without its source");

    auto varying = pcmFormat(16000, 1);
    varying.mBytesPerPacket = 0;
    make(varying);
    EXPECT_DEATH(scriptedQueue().handBack(testBytes(10)), "^Fatal error: Division by zero");
}

// The queue's thread fills buffers as fast as it gets them. Meanwhile this thread calls the targets
// by further `record`s, and stops at some moment.
TEST_F(RecordSourceTest, callsItsTargetsOneAtATimeHoweverThreadsMeet) {
    const auto await = [](auto condition) { return waitFor(condition, std::this_thread::yield); };
    for (std::size_t round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        make(pcmFormat(200, 1));  // buffers of 200 bytes
        std::atomic<std::uint32_t> capturedCount = 0;
        std::atomic<std::size_t> receivedCount = 0;
        std::atomic<bool> hasEnded = false;
        target_->onCall = [&](const std::string& call) {
            events_.push_back(call);
            if (events_.size() == 1) {
                EXPECT_TRUE(await([&] { return capturedCount > 0; }));
            }
            receivedCount = target_->chunks.size();
            std::this_thread::yield();
            events_.push_back(call + " is over");
        };
        auto device = scriptedQueue().startDevice([&] {
            const std::uint32_t seed = ++capturedCount;
            scriptedQueue().handBack(testBytes(200, seed));
        });
        source_->record();
        source_->record();
        source_->record();
        EXPECT_TRUE(await([&] { return receivedCount >= round % 7; }));
        source_->stop([&] { hasEnded = true; });
        ASSERT_TRUE(await([&] { return hasEnded.load(); }));
        device = {};

        EXPECT_EQ(source_->idleQueueBufferCount(), 3U);
        EXPECT_EQ(events_.front(), "start");
        EXPECT_EQ(events_.back(), "end is over");
        EXPECT_EQ(std::ranges::count(events_, "start"), 3);
        EXPECT_EQ(std::ranges::count(events_, "end"), 1);
        for (std::size_t i = 0; i + 1 < events_.size(); i += 2) {
            ASSERT_EQ(events_[i + 1], events_[i] + " is over");
        }
        ASSERT_EQ(target_->chunks.size(), capturedCount);
        for (std::uint32_t i = 0; i < capturedCount; ++i) {
            ASSERT_EQ(target_->chunks[i].bytes, testBytes(200, i + 1));
        }
    }
}

}  // namespace
}  // namespace zav::test
