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

/// A queue and what its callback was told. The queue ends with this object, unless it was disposed
/// of before. No call may take long, whatever has become of the device, and no two of its callbacks
/// may run at the same time: the test fails otherwise.
class QueueUnderTest {
 public:
    struct Return {
        AudioQueueBufferRef buffer;
        // Of an input buffer.
        std::vector<std::byte> bytes{};
        double startFrame = 0;
        std::vector<AudioStreamPacketDescription> descriptions{};
        // What `note` adds.
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
    /// Allocates buffers, of silence if the queue plays, and enqueues them.
    std::vector<AudioQueueBufferRef> enqueueNew(std::size_t bufferCount, std::uint32_t byteCount);
    void enqueueFull(AudioQueueBufferRef buffer);
    std::vector<Return> returns() const;
    std::size_t returnCount() const;
    /// Forgets the returns so far.
    void forget();

    /// Called in every callback, after the return was noted.
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

/// Waits until no callback is under way: of the queues under test, or of these.
void settleQueues();
void settle(std::initializer_list<AudioQueueRef> queues);

class OutputUnderTest : public QueueUnderTest {
 public:
    explicit OutputUnderTest(const AudioStreamBasicDescription& format,
                             DispatchQueueRef dispatchQueue = nullptr);

    /// Allocates a buffer with these bytes, and enqueues it.
    AudioQueueBufferRef enqueue(const void* bytes, std::size_t byteCount);
    template <class Sample>
    AudioQueueBufferRef enqueue(const std::vector<Sample>& samples) {
        return enqueue(samples.data(), samples.size() * sizeof(Sample));
    }
};

class InputUnderTest : public QueueUnderTest {
 public:
    explicit InputUnderTest(const AudioStreamBasicDescription& format);

    /// Enqueues every buffer again when it comes back while the queue runs.
    void recycle();
    std::vector<std::byte> captured() const;
};

}  // namespace zav::test
