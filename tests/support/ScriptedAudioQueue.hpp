#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::test {

/// The audio queue service for tests of nodes, linked in place of the real one: one queue, every
/// argument noted, every call made to fail on demand. The test is its device: a buffer comes back
/// when the test says so, on the thread that says it.
///
/// Threads: the service's functions and this struct's may be called by several; the fields are the
/// test's while no other thread is at work.
struct ScriptedAudioQueue {
    /// Statuses to answer with, by the call as it is noted; what is not here succeeds.
    std::map<std::string, OSStatus> failures;
    /// Called at the end of every call, with what has been noted, while nothing is locked.
    std::function<void(const std::string& call)> onCall;
    std::uint32_t maximumPacketSize = 2;
    /// What kAudioQueueProperty_StreamDescription writes, whatever the room is.
    std::optional<AudioStreamBasicDescription> streamDescription;
    std::vector<std::byte> magicCookie;
    double sampleTime = 0;

    /// The queue's state.
    bool isRunning = false;
    bool isPaused = false;
    /// An asynchronous stop ends when the last buffer has come back.
    bool isStopping = false;
    std::deque<AudioQueueBufferRef> enqueued;
    /// How many of those, the first ones, a stop has given back; also what a callback that captured
    /// enqueues behind another thread's stop.
    std::size_t returningCount = 0;
    /// The bytes of the buffers that came back while the queue ran and was not paused.
    std::vector<std::byte> played;

    /// What the node did.
    std::vector<std::string> calls;
    AudioStreamBasicDescription format;
    AudioQueueInputCallback inputCallback = nullptr;
    void* userData = nullptr;
    AudioQueueOutputCallbackBlock outputCallback;
    DispatchQueueRef dispatchQueue = nullptr;
    std::uint32_t roomForStreamDescription = 1;
    std::vector<std::uint32_t> allocatedSizes;
    struct Enqueue {
        std::vector<std::byte> bytes;
        std::uint32_t packetCount;
        const AudioStreamPacketDescription* descriptions;
    };
    std::vector<Enqueue> enqueues;

    std::size_t count(const std::string& call) const;

    /// Hands the first buffer back: played, or empty.
    void handBack();
    void handBackAll();
    /// Fills the first buffer and hands it back.
    void capture(std::span<const std::byte> bytes,
                 std::span<const AudioStreamPacketDescription> descriptions = {});

    /// For a device on a thread of its own: waits for a buffer that can be played or filled, or has
    /// been given back. False when there is none any more.
    bool waitForBuffer();
    void endDevice();
    /// Waits for a state of the queue; false when it does not come.
    bool waitUntil(const std::function<bool(ScriptedAudioQueue&)>& condition);

    std::deque<std::vector<std::byte>> bufferBytes;
    std::deque<AudioQueueBuffer> buffers;
    std::mutex mutex;
    std::condition_variable changed;
    bool deviceHasEnded = false;
    bool hasStopped = false;  ///< at once, and not started again
};

/// The one queue of the running test. `resetAudioQueue` makes it new.
ScriptedAudioQueue& scriptedQueue();
void resetAudioQueue();

}  // namespace zav::test
