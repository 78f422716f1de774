// The promises of every audio queue on every device: zav_queue_tests checks them on the virtual
// device, zav_live_tests on sound servers.

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <latch>
#include <random>
#include <set>
#include <string>

#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/Ramp.hpp"
#include "tests/support/Worlds.hpp"

namespace zav::test {
namespace {

constexpr std::size_t kRate = 48000;
const AudioStreamBasicDescription kOutputFormat = pcmFormat(kRate, 2);
const AudioStreamBasicDescription kInputFormat = pcmFormat(kRate, 1);

class AudioQueueContract : public ::testing::TestWithParam<std::string> {
 protected:
    bool until(const std::function<bool()>& isDone) { return world_->until(isDone); }

    bool untilReturned(const QueueUnderTest& queue, std::size_t bufferCount) {
        return until([&] { return queue.returnCount() == bufferCount; });
    }
    bool untilStopped(const QueueUnderTest& queue) {
        return until([&] { return !queue.isRunning(); });
    }

    /// Waits until this many samples were heard. Expects the ramp.
    void expectToHear(std::size_t sampleCount) {
        until([&] { return world_->heard().size() >= sampleCount; });
        const auto heard = world_->heard();
        const auto ramp = rampSamples(sampleCount);
        const auto [other, wanted] =
            std::mismatch(heard.begin(), heard.end(), ramp.begin(), ramp.end());
        EXPECT_TRUE(heard == ramp)
            << "heard " << heard.size() << " samples instead of " << ramp.size()
            << ", the first wrong one at " << wanted - ramp.begin();
    }

    /// Expects `count` interruptions. A real device may have more: it also runs dry when the
    /// machine stalls.
    void expectInterruptions(const QueueUnderTest& queue, std::uint32_t count) {
        EXPECT_GE(queue.interruptionCount(), count);
        EXPECT_TRUE(queue.interruptionCount() == count || !isVirtual_);
    }

    const bool isVirtual_ = GetParam() == "virtual";
    const std::unique_ptr<AudioWorld> world_ = makeWorld(GetParam());
};

TEST_P(AudioQueueContract, playsEveryBufferOnceInOrder) {
    OutputUnderTest queue(kOutputFormat);
    const auto audio = rampSamples(kRate);  // half a second
    const auto* const bytes = reinterpret_cast<const std::byte*>(audio.data());
    const std::size_t byteCount = audio.size() * sizeof(std::int16_t);
    std::vector<AudioQueueBufferRef> enqueued;
    // The buffers are one stream of bytes, so they may begin and end inside a frame.
    const std::array<std::size_t, 5> sizes = {1, 4801, 2, 20002, 7};
    std::size_t done = 0;
    const auto enqueueTo = [&](std::size_t end) {
        for (std::size_t i = 0; done < end; ++i) {
            const std::size_t size = std::min(sizes.at(i % sizes.size()), byteCount - done);
            enqueued.push_back(queue.enqueue(bytes + done, size));
            done += size;
        }
    };
    enqueueTo(byteCount / 2);
    EXPECT_FALSE(queue.isRunning());
    ASSERT_EQ(queue.start(), noErr);
    EXPECT_TRUE(queue.isRunning());
    enqueueTo(byteCount);
    ASSERT_EQ(queue.stop(false), noErr);
    EXPECT_TRUE(queue.isRunning());
    EXPECT_FALSE(queue.hasPlayedAll());
    ASSERT_TRUE(untilStopped(queue));
    EXPECT_TRUE(queue.hasPlayedAll());
    ASSERT_TRUE(untilReturned(queue, enqueued.size()));

    expectToHear(audio.size());
    const auto returns = queue.returns();
    for (std::size_t i = 0; i < enqueued.size(); ++i) {
        EXPECT_EQ(returns[i].buffer, enqueued[i]);
    }
    EXPECT_FALSE(returns.back().isQueueRunning);
    EXPECT_EQ(queue.currentFrame(), kRate / 2);
    expectInterruptions(queue, 0);
}

TEST_P(AudioQueueContract, losesNothingWhenItsRunIsInterrupted) {
    OutputUnderTest queue(kOutputFormat);
    std::size_t sampleCount = 0;
    const auto enqueue = [&](std::size_t count) {
        queue.enqueue(rampSamples(count, sampleCount));
        sampleCount += count;
    };
    enqueue(kRate);
    ASSERT_EQ(queue.start(), noErr);
    for (int i = 0; i < 3; ++i) {
        const double before = queue.currentFrame();
        ASSERT_TRUE(until([&] { return queue.currentFrame() > before + 2400; }));
        ASSERT_EQ(queue.pause(), noErr);
        EXPECT_TRUE(queue.isRunning());
        const double pausedAt = queue.currentFrame();
        world_->pass(0.3);
        EXPECT_EQ(queue.currentFrame(), pausedAt);
        enqueue(9600);
        ASSERT_EQ(queue.start(), noErr);
    }
    // A queue that starves gives back every buffer. The next buffer, however short, goes on at the
    // same frame.
    std::uint32_t starved = 0;
    for (const std::size_t next : {9600U, 100U, 9600U}) {
        ASSERT_TRUE(untilReturned(queue, 4 + starved));
        EXPECT_TRUE(queue.isRunning());
        ++starved;
        ASSERT_TRUE(until([&] { return queue.interruptionCount() >= starved; }));
        expectInterruptions(queue, starved);
        EXPECT_NEAR(queue.currentFrame(), static_cast<double>(sampleCount) / 2, 1);
        enqueue(next);
    }
    ASSERT_TRUE(untilReturned(queue, 7));
    // A playback sink that runs out of audio pauses its starved queue.
    ASSERT_EQ(queue.pause(), noErr);
    enqueue(9600);
    // An asynchronous stop of a paused queue waits until the queue goes on.
    ASSERT_EQ(queue.stop(false), noErr);
    world_->pass(0.8);
    EXPECT_TRUE(queue.isRunning());
    EXPECT_EQ(queue.returnCount(), 7U);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_TRUE(untilStopped(queue));
    // A new run counts from frame 0.
    enqueue(9600);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    ASSERT_TRUE(untilStopped(queue));
    EXPECT_EQ(queue.currentFrame(), 4800);
    ASSERT_TRUE(untilReturned(queue, 9));

    expectToHear(sampleCount);
}

TEST_P(AudioQueueContract, anImmediateStopGivesEverythingBackAtOnce) {
    OutputUnderTest queue(kOutputFormat);
    // A queue that never ran gives its buffers back as well.
    queue.enqueue(rampSamples(100));
    ASSERT_EQ(queue.stop(true), noErr);
    ASSERT_TRUE(untilReturned(queue, 1));

    for (int i = 0; i < 5; ++i) {
        queue.enqueue(rampSamples(kRate));
    }
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_TRUE(until([&] { return queue.currentFrame() > 2400; }));
    ASSERT_EQ(queue.stop(true), noErr);
    EXPECT_FALSE(queue.isRunning());
    EXPECT_FALSE(queue.hasPlayedAll());
    const double stoppedAt = queue.currentFrame();
    EXPECT_GT(stoppedAt, 2400);
    ASSERT_TRUE(untilReturned(queue, 6));
    for (const auto& returned : queue.returns()) {
        EXPECT_FALSE(returned.isQueueRunning);
    }
    EXPECT_EQ(queue.currentFrame(), stoppedAt);
}

TEST_P(AudioQueueContract, anAsynchronousStopPlaysOutUnlessAStartCallsItOff) {
    OutputUnderTest queue(kOutputFormat);
    std::atomic<unsigned> enqueued = 1;
    std::atomic<unsigned> wanted = 1;
    queue.onReturn = [&](AudioQueueBufferRef) {
        if (enqueued < wanted) {
            queue.enqueue(rampSamples(9600, std::size_t{9600} * enqueued++));
        }
    };
    queue.enqueue(rampSamples(9600));
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_TRUE(untilReturned(queue, 1));
    // The start has called the stop off, so the queue has not ended: it waits for audio.
    ASSERT_TRUE(until([&] { return queue.interruptionCount() > 0; }));
    EXPECT_TRUE(queue.isRunning());

    ASSERT_EQ(queue.pause(), noErr);
    queue.enqueue(rampSamples(9600, std::size_t{9600} * enqueued++));
    queue.enqueue(rampSamples(9600, std::size_t{9600} * enqueued++));
    wanted = 5;
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_EQ(queue.stop(false), noErr);
    ASSERT_TRUE(until([&] { return !queue.isRunning() && queue.returnCount() == 5; }));
    expectToHear(48000);
}

TEST_P(AudioQueueContract, capturesEverySampleIntoBuffersInOrder) {
    InputUnderTest queue(kInputFormat);
    queue.recycle();
    constexpr std::uint32_t kBufferSize = kRate / 2;  // a quarter of a second
    const auto buffers = queue.enqueueNew(3, kBufferSize);
    EXPECT_FALSE(queue.isRunning());
    ASSERT_EQ(queue.start(), noErr);
    const auto said = rampSamples(kRate);
    world_->say(said);
    const auto heardIt = [&] {
        return queue.capturedWithoutSilence().size() + kBufferSize / 2 >= said.size();
    };
    ASSERT_TRUE(until([&] { return world_->hasSaidAll() && heardIt(); }));
    world_->pass(0.1);
    const std::size_t fullCount = queue.returnCount();
    ASSERT_EQ(queue.stop(true), noErr);
    EXPECT_FALSE(queue.isRunning());
    ASSERT_TRUE(until([&] { return queue.returnCount() >= fullCount + 3; }));

    const auto returns = queue.returns();
    EXPECT_EQ(queue.capturedWithoutSilence(), said);
    double frames = 0;
    for (std::size_t i = 0; i < returns.size(); ++i) {
        EXPECT_EQ(returns[i].buffer, buffers[i % 3]);
        EXPECT_EQ(returns[i].thread, returns[0].thread);
        const bool isFull = returns[i].bytes.size() == kBufferSize;
        EXPECT_TRUE(isFull || i + 3 >= returns.size());
        if (!returns[i].bytes.empty()) {
            EXPECT_EQ(returns[i].startFrame, frames);
        }
        frames += static_cast<double>(returns[i].bytes.size()) / 2;
    }
    EXPECT_EQ(queue.currentFrame(), frames);
    EXPECT_TRUE(returns.back().bytes.empty());
    EXPECT_NE(returns[0].thread, std::this_thread::get_id());
}

TEST_P(AudioQueueContract, capturesNothingWhileItIsPaused) {
    InputUnderTest queue(kInputFormat);
    queue.recycle();
    queue.enqueueNew(3, 9600);
    // Stairs: 8 equal samples a step. A rising sequence of 4 s would not fit into 16 bits.
    constexpr std::size_t kStep = 8;
    std::vector<std::int16_t> stairs(kRate * 4);
    for (std::size_t i = 0; i < stairs.size(); ++i) {
        stairs[i] = static_cast<std::int16_t>(1 + i / kStep);
    }
    const auto hasCaptured = [&](std::size_t count) {
        return queue.capturedWithoutSilence().size() >= count;
    };
    world_->say(stairs);
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_TRUE(until([&] { return hasCaptured(4800); }));
    ASSERT_EQ(queue.pause(), noErr);
    EXPECT_TRUE(queue.isRunning());
    const double pausedAt = queue.currentFrame();
    const std::size_t returnedBefore = queue.returnCount();
    world_->pass(0.3);
    EXPECT_EQ(queue.currentFrame(), pausedAt);
    EXPECT_LE(queue.returnCount(), returnedBefore + 3);
    const std::size_t capturedBefore = queue.capturedWithoutSilence().size();
    ASSERT_EQ(queue.start(), noErr);
    ASSERT_TRUE(until([&] { return hasCaptured(capturedBefore + 9600); }));
    ASSERT_EQ(queue.stop(true), noErr);
    ASSERT_TRUE(untilStopped(queue));
    // Capture goes on somewhere behind the pause and repeats nothing.
    const auto heard = queue.capturedWithoutSilence();
    EXPECT_TRUE(std::ranges::is_sorted(heard));
    for (std::size_t i = kStep; i < heard.size(); ++i) {
        ASSERT_NE(heard[i], heard[i - kStep]) << i;
    }
}

/// A call of a queue. `play` calls nothing: the queue just runs. `pauseAtEnd` pauses during an
/// asynchronous stop; `stopAtEnd` and `disposeAtEnd` are asynchronous.
enum class Call { play, pause, pauseAtEnd, start, stop, stopAtEnd, dispose, disposeAtEnd };

OSStatus make(Call call, QueueUnderTest& queue) {
    switch (call) {
        case Call::play:
            return noErr;
        case Call::pauseAtEnd:
            EXPECT_EQ(queue.stop(false), noErr);
            [[fallthrough]];
        case Call::pause:
            return queue.pause();
        case Call::start:
            return queue.start();
        case Call::stop:
        case Call::stopAtEnd:
            return queue.stop(call == Call::stop);
        default:
            queue.dispose(call == Call::dispose);
            return noErr;
    }
}

TEST_P(AudioQueueContract, aLostDeviceStopsTheQueueUntilTheNextStart) {
    // Each call is made on its own thread, once for an output and once for an input queue. The
    // device goes away some milliseconds later: before, during or after the call.
    struct Case {
        Call call;
        bool isInput;
        std::unique_ptr<QueueUnderTest> queue;
        std::future<OSStatus> status;
    };
    const int roundCount = isVirtual_ ? 100 : 10;
    std::mt19937 random(1);
    for (int round = 0; round < roundCount; ++round) {
        std::latch everyone(2 * 8 + 1);
        std::vector<Case> cases;
        for (const Call call : {Call::play, Call::pause, Call::pauseAtEnd, Call::start, Call::stop,
                                Call::stopAtEnd, Call::dispose, Call::disposeAtEnd}) {
            for (const bool isInput : {false, true}) {
                std::unique_ptr<QueueUnderTest> queue;
                if (isInput) {
                    queue = std::make_unique<InputUnderTest>(kInputFormat);
                } else {
                    queue = std::make_unique<OutputUnderTest>(kOutputFormat);
                }
                queue->enqueueNew(2, 4 * kRate);
                EXPECT_EQ(call == Call::start ? noErr : queue->start(), noErr);
                auto status = std::async(std::launch::async, [&everyone, call, &queue = *queue] {
                    everyone.arrive_and_wait();
                    return make(call, queue);
                });
                cases.push_back({call, isInput, std::move(queue), std::move(status)});
            }
        }
        everyone.arrive_and_wait();
        world_->pass(static_cast<double>(random() % 20) * 0.001);
        world_->lose();

        for (auto& [call, isInput, queue, made] : cases) {
            SCOPED_TRACE(static_cast<int>(call));
            OSStatus status = made.get();
            if (status != noErr) {
                EXPECT_TRUE(call == Call::start || call == Call::pause || call == Call::pauseAtEnd);
                EXPECT_TRUE(status == kAudioQueueErr_InvalidDevice ||
                            status == kAudioQueueErr_CannotStart);
            }
            if (call == Call::start && status != noErr) {
                EXPECT_EQ(queue->returnCount(), 0U);
                EXPECT_EQ(queue->stop(true), noErr);
            }
            ASSERT_TRUE(call == Call::dispose || untilReturned(*queue, 2));
            if (call < Call::dispose) {
                ASSERT_TRUE(untilStopped(*queue));
                EXPECT_FALSE(!isInput && queue->hasPlayedAll());
                EXPECT_EQ(queue->start(), kAudioQueueErr_InvalidDevice);
                EXPECT_FALSE(queue->isRunning());
            }
        }
        world_->bringBack();
        for (auto& [call, isInput, queue, made] : cases) {
            if (call < Call::dispose) {
                queue->enqueueNew(1, 960);
                ASSERT_EQ(queue->start(), noErr);
                ASSERT_TRUE(untilReturned(*queue, 3));
            }
        }
    }
}

TEST_P(AudioQueueContract, noCallbackRunsAfterDisposal) {
    std::atomic<int> calls = 0;
    OutputUnderTest queue(kOutputFormat);
    std::promise<void> entered;
    std::promise<void> mayLeave;
    std::atomic<bool> hasLeft = false;
    queue.onReturn = [&](AudioQueueBufferRef) {
        if (calls++ == 0) {
            entered.set_value();
            mayLeave.get_future().wait();
            hasLeft = true;
        }
    };
    for (int i = 0; i < 5; ++i) {
        queue.enqueue(rampSamples(960));
    }
    ASSERT_EQ(queue.stop(true), noErr);
    entered.get_future().wait();
    // Disposal waits for the running callback.
    auto disposal = std::async(std::launch::async, [&] { queue.dispose(); });
    EXPECT_EQ(disposal.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    mayLeave.set_value();
    disposal.get();
    EXPECT_TRUE(hasLeft);
    EXPECT_EQ(calls, 1);
}

TEST_P(AudioQueueContract, aCallbackMayEndTheRunOfItsQueue) {
    for (const Call call : {Call::stop, Call::start, Call::dispose}) {
        std::atomic<int> endCount = 0;
        OutputUnderTest output(kOutputFormat);
        InputUnderTest input(kInputFormat);
        for (QueueUnderTest* const queue :
             {static_cast<QueueUnderTest*>(&output), static_cast<QueueUnderTest*>(&input)}) {
            queue->onReturn = [=, &endCount, isFirst = true](AudioQueueBufferRef buffer) mutable {
                if (!std::exchange(isFirst, false)) {
                    return;
                }
                if (call == Call::dispose) {
                    queue->dispose();
                } else {
                    EXPECT_EQ(queue->stop(true), noErr);
                    EXPECT_FALSE(queue->isRunning());
                    // The callback knows of the stop, so the buffer waits for the next run.
                    queue->enqueueFull(buffer);
                    EXPECT_EQ(call == Call::start ? queue->start() : noErr, noErr);
                }
                ++endCount;
            };
        }
        output.enqueue(rampSamples(960));
        output.enqueue(rampSamples(kRate));
        input.enqueueNew(3, 9600);
        ASSERT_EQ(output.start(), noErr);
        ASSERT_EQ(input.start(), noErr);
        ASSERT_TRUE(until([&] { return endCount == 2; }));
        if (call == Call::stop) {
            ASSERT_TRUE(untilReturned(output, 2) && untilReturned(input, 3));
            ASSERT_EQ(output.start(), noErr);
            ASSERT_EQ(input.start(), noErr);
        }
        ASSERT_TRUE(call == Call::dispose || (untilReturned(output, 3) && untilReturned(input, 4)));
    }
}

TEST_P(AudioQueueContract, aDeferredDisposalPlaysOutFirst) {
    OutputUnderTest queue(kOutputFormat);
    queue.enqueue(rampSamples(9600));
    queue.enqueue(rampSamples(9600, 9600));
    ASSERT_EQ(queue.start(), noErr);
    std::atomic<int> returned = 0;
    AudioQueueRef const handle = queue.get();
    queue.onReturn = [&](AudioQueueBufferRef buffer) {
        // A buffer that was enqueued again would keep the queue from ending.
        EXPECT_EQ(AudioQueueEnqueueBuffer(handle, buffer, 0, nullptr),
                  kAudioQueueErr_DisposalPending);
        EXPECT_EQ(AudioQueueStop(handle, true), kAudioQueueErr_DisposalPending);
        ++returned;
    };
    queue.dispose(false);
    ASSERT_TRUE(until([&] { return returned == 2; }));
    expectToHear(19200);
}

TEST_P(AudioQueueContract, aSinkThatPausesItselfLosesNothing) {
    DiagnosticsLines lines;
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(kOutputFormat);
    const auto sink = makeNode<PlaybackSink>(source);
    sink->setQueueBufferSize(1920);
    sink->autoPlay(0.05);
    // An accessory sends a burst only after the sink has played the last one and paused.
    const int burstCount = isVirtual_ ? 60 : 8;
    std::minstd_rand random(1);
    std::size_t sampleCount = 0;
    source->downstreams().onAudioStreamFlowStart();
    for (int burst = 0; burst < burstCount; ++burst) {
        ASSERT_TRUE(burst == 0 || until([&] { return sink->paused(); }));
        const std::size_t frameCount = 3000 + random() % 4000;
        const auto samples = rampSamples(2 * frameCount, sampleCount);
        sampleCount += samples.size();
        source->downstreams().receiveAudio(samples.data(), 4 * frameCount, frameCount, nullptr);
    }
    source->downstreams().onAudioStreamFlowEnd();
    EXPECT_TRUE(until([&] { return !sink->isPlaying(); }));
    expectToHear(sampleCount);
    EXPECT_TRUE(sink->hasPlayedAll());
    EXPECT_DOUBLE_EQ(sink->timeStamp(), static_cast<double>(sampleCount) / 2 / kRate);
    const auto printed = lines.take();
    const auto count = [&](const char* line) {
        return std::count(printed.begin(), printed.end(), line);
    };
    EXPECT_EQ(count("Resume playing"), burstCount - 1);
    EXPECT_EQ(count("Stop when the enqueued audio bytes exhaused."), 1);
}

/// What the process has open, by kind.
std::multiset<std::string> openDescriptors() {
    std::multiset<std::string> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code isGone;
        const std::string target = std::filesystem::read_symlink(entry, isGone).string();
        descriptors.insert(target.substr(0, target.find(':')));
    }
    return descriptors;
}

std::size_t threadCount() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

TEST_P(AudioQueueContract, hundredsOfCyclesLeakNothing) {
    std::mt19937 random(1);
    const auto chance = [&](unsigned outOf) { return random() % outOf == 0; };
    OutputUnderTest output(kOutputFormat);
    InputUnderTest input(kInputFormat);
    const auto played = output.enqueueNew(2, 1920);
    const auto recorded = input.enqueueNew(1, 960);
    const auto cycle = [&](OutputUnderTest& playing, InputUnderTest& recording) {
        EXPECT_EQ(playing.start(), noErr);
        EXPECT_EQ(recording.start(), noErr);
        world_->pass(static_cast<double>(random() % 4) * 0.001);
        const bool isDropped = chance(4);
        if (isDropped) {
            return;
        }
        EXPECT_EQ(playing.stop(!chance(8)), noErr);
        EXPECT_EQ(recording.stop(true), noErr);
        ASSERT_TRUE(until([&] {
            return !playing.isRunning() && playing.returnCount() == 2 &&
                   recording.returnCount() == 1;
        }));
    };
    const auto makeAndDrop = [&] {
        OutputUnderTest playing(kOutputFormat);
        InputUnderTest recording(kInputFormat);
        playing.enqueueNew(2, 1920);
        recording.enqueueNew(1, 960);
        cycle(playing, recording);
    };
    const auto startAndStop = [&] {
        cycle(output, input);
        output.stop(true);
        input.stop(true);
        settleQueues();
        output.forget();
        input.forget();
        output.enqueueFull(played[0]);
        output.enqueueFull(played[1]);
        input.enqueueFull(recorded[0]);
    };
    const auto repeat = [&] {
        for (int i = 0; i < ZAV_TEST_CYCLES && !HasFailure(); ++i) {
            startAndStop();
            makeAndDrop();
        }
    };
    repeat();
    const std::size_t threadsBefore = threadCount();
    const std::multiset<std::string> descriptorsBefore = openDescriptors();
    // A leak grows in every round, by at least 32 bytes a cycle, the smallest block. Allocators and
    // libpulse's pools grow as well, but in some round they have what they need.
    bool isGrowing = true;
    for (int round = 0; isGrowing && round < 10; ++round) {
        const std::size_t byteCount = mallinfo2().uordblks;
        repeat();
        isGrowing = mallinfo2().uordblks > byteCount + std::size_t{24} * ZAV_TEST_CYCLES;
    }
    EXPECT_FALSE(isGrowing);
    // Less than before is well: a dispatch queue's thread closes an event when it gets to it.
    const auto hasNoMoreOpen = [&] {
        const std::multiset<std::string> now = openDescriptors();
        return std::includes(descriptorsBefore.begin(), descriptorsBefore.end(), now.begin(),
                             now.end());
    };
    EXPECT_TRUE(until([&] { return threadCount() <= threadsBefore; }));
    EXPECT_TRUE(until(hasNoMoreOpen)) << ::testing::PrintToString(descriptorsBefore) << " became "
                                      << ::testing::PrintToString(openDescriptors());
}

INSTANTIATE_TEST_SUITE_P(, AudioQueueContract, ::testing::ValuesIn(worldNames()),
                         [](const auto& world) { return world.param; });

}  // namespace
}  // namespace zav::test
