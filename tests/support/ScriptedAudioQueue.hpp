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

/// The audio queue service for tests of nodes, linked in place of the real one. It has one queue,
/// and the test is its device: a buffer comes back when the test calls `handBack`, on the same
/// thread.
///
/// Threads: call the service's functions and this struct's from any thread. The test uses the
/// fields only while no other thread runs.
struct ScriptedAudioQueue : ScriptedCalls {
    ScriptedAudioQueue() { setProperty(kAudioQueueProperty_MaximumOutputPacketSize, 2U); }

    /// Called at the end of every call, with its text in `calls`. No lock is held then.
    std::function<void(const std::string& call)> onCall;
    double sampleTime = 0;

    /// The queue's state.
    bool isRunning = false;
    bool isPaused = false;
    /// An asynchronous stop ends when the last buffer has come back.
    bool isStopping = false;
    bool hasStopped = false;
    std::deque<AudioQueueBufferRef> enqueued;
    /// How many of them, from the first one on, come back because of a stop. A buffer that a
    /// capture callback enqueues after another thread's stop counts, too.
    std::size_t returningCount = 0;
    /// The bytes of the buffers that came back while the queue ran and was not paused.
    std::vector<std::byte> played;

    /// What the node passed to the service.
    AudioStreamBasicDescription format;
    AudioQueueInputCallback inputCallback = nullptr;
    void* userData = nullptr;
    AudioQueueOutputCallbackBlock outputCallback;
    /// One for each enqueued buffer.
    std::vector<const AudioStreamPacketDescription*> descriptions;

    /// Hands back the first buffer: played, or filled with `captured`.
    void handBack(std::span<const std::byte> captured = {},
                  std::span<const AudioStreamPacketDescription> packets = {});
    void handBackAll();
    /// A device on its own thread: calls `handOneBack` whenever a buffer can be played or filled,
    /// or comes back because of a stop.
    std::jthread startDevice(std::function<void()> handOneBack);
    /// Ends the run. The caller holds the lock.
    void halt();

    std::deque<std::vector<std::byte>> bufferBytes;
    std::deque<AudioQueueBuffer> buffers;
    std::mutex mutex;
};

/// The queue of the running test. `resetAudioQueue` makes a new one.
ScriptedAudioQueue& scriptedQueue();
void resetAudioQueue();

}  // namespace zav::test
