#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ZAVAudioStreaming/platform/OwnedAudioQueue.hpp"

namespace zav::test {

/// A queue and a record of its callbacks. The destructor disposes of the queue, unless the test has
/// done so. The test fails if a call takes longer than 15 s, whatever has become of the device, or
/// if two callbacks of the queue run at the same time.
class QueueUnderTest {
 public:
    struct Return {
        AudioQueueBufferRef buffer;
        // Input buffers only.
        std::vector<std::byte> bytes{};
        double startFrame = 0;
        std::vector<AudioStreamPacketDescription> descriptions{};
        // Filled in by `note`.
        bool isQueueRunning = false;
        std::thread::id thread{};
    };

    virtual ~QueueUnderTest();

    AudioQueueRef get() const { return queue_; }
    OSStatus start();
    OSStatus stop(bool isImmediate);
    OSStatus pause();
    void dispose(bool isImmediate = true);

    template <class Value>
    Value property(AudioQueuePropertyID property) const {
        Value value{};
        EXPECT_EQ(readAudioQueueProperty(queue_, property, value), noErr);
        return value;
    }
    bool isRunning() const { return isRunning(queue_); }
    double currentFrame() const;
    std::uint32_t interruptionCount() const {
        return property<std::uint32_t>(kAudioQueueProperty_InterruptionCount);
    }
    bool hasPlayedAll() const {
        return property<std::uint32_t>(kAudioQueueProperty_HasPlayedAll) != 0;
    }
    AudioQueueLevel level() const { return property<AudioQueueLevel>(kAudioQueueProperty_Level); }

    AudioQueueBufferRef allocate(std::uint32_t byteCount);
    /// Allocates buffers, fills them with bytes of 0, and enqueues them.
    std::vector<AudioQueueBufferRef> enqueueNew(std::size_t bufferCount, std::uint32_t byteCount);
    /// Enqueues a buffer with as many bytes as it has room for.
    void enqueueFull(AudioQueueBufferRef buffer);
    /// The buffers that came back since the start or the last `forget`.
    std::vector<Return> returns() const;
    std::size_t returnCount() const;
    void forget();

    /// Called in every callback, after the return has been recorded.
    std::function<void(AudioQueueBufferRef)> onReturn;

 protected:
    void note(AudioQueueRef queue, Return returned);
    void take(AudioQueueRef queue);

 private:
    static bool isRunning(AudioQueueRef queue);

    AudioQueueRef queue_ = nullptr;
    mutable std::mutex mutex_;
    std::vector<Return> returns_;
    std::atomic<int> running_{0};
    std::atomic<bool> wasConcurrent_{false};
};

/// Waits until no callback of any queue under test is under way.
void settleQueues();
/// Waits until no callback of these queues is under way.
void settle(std::initializer_list<AudioQueueRef> queues);

class OutputUnderTest : public QueueUnderTest {
 public:
    explicit OutputUnderTest(const AudioStreamBasicDescription& format,
                             DispatchQueueRef dispatchQueue = nullptr);

    /// Allocates a buffer, copies these bytes into it, and enqueues it.
    AudioQueueBufferRef enqueue(const void* bytes, std::size_t byteCount);
    template <class Sample>
    AudioQueueBufferRef enqueue(const std::vector<Sample>& samples) {
        return enqueue(samples.data(), samples.size() * sizeof(Sample));
    }
};

class InputUnderTest : public QueueUnderTest {
 public:
    explicit InputUnderTest(const AudioStreamBasicDescription& format);

    /// From now on, enqueues every buffer again that comes back while the queue runs.
    void recycle();
    /// The bytes of all returned buffers.
    std::vector<std::byte> captured() const;
    /// Their 16-bit samples, without silence (samples of 0).
    std::vector<std::int16_t> capturedWithoutSilence() const;
};

}  // namespace zav::test
