// Audio queues whose sound server does not answer. A queue waits for some seconds, and then treats
// the server as gone.

#include <gtest/gtest.h>

#include <future>

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/SoundServer.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

struct Output : OutputUnderTest {
    Output() : OutputUnderTest(pcmFormat(48000, 2)) { enqueueNew(3, 20 * 48000); }
};

using Queues = std::initializer_list<QueueUnderTest*>;

/// Its buffers are so long that none is filled before the server counts as gone.
struct Input : InputUnderTest {
    Input() : InputUnderTest(pcmFormat(48000, 1)) { enqueueNew(3, 60 * 48000 * 2); }
};

class FrozenServer : public testing::TestWithParam<const char*> {
 protected:
    SoundServer server_{GetParam()};
};

TEST_P(FrozenServer, countsAsGoneAfterSomeSeconds) {
    Output playing;
    Output paused;
    Output ending;
    Input recording;
    // The test makes calls of these while the server is frozen.
    Output stopped;
    Output disposed;
    Output endedLate;
    Output resumed;
    Input stoppedInput;
    Input disposedInput;
    Input pausedInput;
    Output started;
    Input startedInput;
    for (QueueUnderTest* const queue :
         Queues{&playing, &paused, &ending, &recording, &stopped, &disposed, &endedLate, &resumed,
                &stoppedInput, &disposedInput, &pausedInput}) {
        ASSERT_EQ(queue->start(), noErr);
        ASSERT_TRUE(waitFor([&] { return queue->currentFrame() > 0; }));
    }
    ASSERT_EQ(paused.pause(), noErr);
    ASSERT_EQ(resumed.pause(), noErr);
    ASSERT_EQ(ending.stop(false), noErr);

    server_.signal(SIGSTOP);
    const auto isCalled = [](auto call) { return std::async(std::launch::async, call); };
    {
        const std::array<std::future<void>, 9> calls{
            isCalled([&] { EXPECT_EQ(started.start(), kAudioQueueErr_CannotStart); }),
            isCalled([&] { EXPECT_EQ(startedInput.start(), kAudioQueueErr_CannotStart); }),
            isCalled([&] { EXPECT_EQ(stopped.stop(true), noErr); }),
            isCalled([&] { EXPECT_EQ(stoppedInput.stop(true), noErr); }),
            isCalled([&] { disposed.dispose(); }),
            isCalled([&] { disposedInput.dispose(); }),
            isCalled([&] { endedLate.dispose(false); }),
            isCalled([&] {
                EXPECT_EQ(pausedInput.pause(), noErr);
                // On a slow machine the server may count as gone already.
                const OSStatus status = resumed.start();
                EXPECT_TRUE(status == noErr || status == kAudioQueueErr_InvalidDevice) << status;
            }),
            isCalled([] {
                AudioDeviceList list;
                EXPECT_EQ(listAudioDevices(list), kAudioQueueErr_CannotStart);
            })};
    }
    EXPECT_FALSE(started.isRunning() || startedInput.isRunning() || stopped.isRunning() ||
                 stoppedInput.isRunning());
    EXPECT_EQ(started.returnCount() + startedInput.returnCount(), 0U);
    // A paused queue keeps its device open, so it notices the loss, too.
    for (QueueUnderTest* const queue :
         Queues{&playing, &paused, &ending, &recording, &resumed, &pausedInput}) {
        EXPECT_TRUE(waitFor([&] { return !queue->isRunning(); }));
    }
    for (QueueUnderTest* const queue : Queues{&playing, &paused, &ending, &recording, &resumed,
                                              &pausedInput, &stopped, &stoppedInput, &endedLate}) {
        EXPECT_TRUE(waitFor([&] { return queue->returnCount() == 3; }));
    }

    server_.signal(SIGCONT);
    for (QueueUnderTest* const queue : Queues{&playing, &paused, &ending, &resumed, &stopped,
                                              &recording, &stoppedInput, &pausedInput}) {
        queue->enqueueNew(1, 960);
        EXPECT_EQ(queue->start(), noErr);
        EXPECT_TRUE(waitFor([&] { return queue->returnCount() == 4; }));
    }
    EXPECT_EQ(started.start(), noErr);
    EXPECT_EQ(startedInput.start(), noErr);
    EXPECT_TRUE(waitFor(
        [&] { return started.currentFrame() > 4800 && startedInput.currentFrame() > 4800; }));
}

INSTANTIATE_TEST_SUITE_P(On, FrozenServer, testing::Values("pulseaudio", "pipewire"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace zav::test
