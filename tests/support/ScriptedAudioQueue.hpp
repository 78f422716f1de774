#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "tests/support/ScriptedCalls.hpp"

namespace zav::test {

/// The audio queue service for tests of nodes, linked in place of the real one: one queue, whose
/// device is the test. A buffer comes back when the test says so, on the thread that says it.
///
/// Threads: the service's functions and this struct's may be called by several; the fields are the
/// test's while no other thread is at work.
struct ScriptedAudioQueue : ScriptedCalls {
    ScriptedAudioQueue() { setProperty(kAudioQueueProperty_MaximumOutputPacketSize, 2U); }

    /// Called at the end of every call, with what has been noted, while nothing is locked.
    std::function<void(const std::string& call)> onCall;
    double sampleTime = 0;

    /// The queue's state.
    bool isRunning = false;
    bool isPaused = false;
    /// An asynchronous stop ends when the last buffer has come back.
    bool isStopping = false;
    bool hasStopped = false;
    std::deque<AudioQueueBufferRef> enqueued;
    /// How many of those, the first ones, a stop has given back; also what a callback that captured
    /// enqueues behind another thread's stop.
    std::size_t returningCount = 0;
    /// The bytes of the buffers that came back while the queue ran and was not paused.
    std::vector<std::byte> played;

    /// What the node did.
    AudioStreamBasicDescription format;
    AudioQueueInputCallback inputCallback = nullptr;
    void* userData = nullptr;
    AudioQueueOutputCallbackBlock outputCallback;
    /// Of each enqueued buffer.
    std::vector<const AudioStreamPacketDescription*> descriptions;

    /// Hands the first buffer back: played, or filled with what was captured.
    void handBack(std::span<const std::byte> captured = {},
                  std::span<const AudioStreamPacketDescription> packets = {});
    void handBackAll();
    /// A device on a thread of its own: calls `handOneBack` whenever there is a buffer that can be
    /// played or filled, or that a stop has given back.
    std::jthread startDevice(std::function<void()> handOneBack);
    void halt();

    std::deque<std::vector<std::byte>> bufferBytes;
    std::deque<AudioQueueBuffer> buffers;
    std::mutex mutex;
};

/// The one queue of the running test. `resetAudioQueue` makes it new.
ScriptedAudioQueue& scriptedQueue();
void resetAudioQueue();

}  // namespace zav::test
