#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav::detail {

/// The buffers of a queue and where each of them is: with the application, enqueued, or given back
/// and waiting for its callback. Enqueued buffers are given back in their order.
///
/// Threads: one at a time.
class BufferLedger {
 public:
    /// Memory for one buffer. Make it before you lock the ledger, because the allocation can take
    /// long.
    struct Memory {
        explicit Memory(std::uint32_t byteCount);

        std::unique_ptr<std::byte[]> bytes;
        AudioQueueBuffer buffer;
        bool isInQueue = false;  ///< enqueued or given back
    };

    /// A buffer in the queue, and the data that its callback reports.
    struct Entry {
        AudioQueueBufferRef buffer = nullptr;
        std::uint64_t endFrame = 0;  ///< output: frames of the run up to the buffer's end
        AudioTimeStamp startTime;    ///< input: time of its first frame
        std::vector<AudioStreamPacketDescription> descriptions;  ///< input
    };

    /// Adds the memory and returns its buffer. The buffer is then with the application.
    AudioQueueBufferRef add(std::unique_ptr<Memory> memory);

    /// Returns noErr if the buffer can be enqueued. The buffer must belong to this queue, be with
    /// the application, and contain no more bytes than it has room for.
    OSStatus check(AudioQueueBufferRef buffer) const;

    /// Enqueues a checked buffer behind the others.
    Entry& enqueue(AudioQueueBufferRef buffer);
    /// Undoes the last `enqueue`.
    void removeLast();
    /// Gives a checked buffer back without enqueueing it.
    void returnAtOnce(AudioQueueBufferRef buffer);

    bool hasEnqueued() const { return !enqueued_.empty(); }
    std::size_t enqueuedCount() const { return enqueued_.size(); }
    /// The oldest enqueued buffer.
    Entry& first() { return enqueued_.front(); }
    const Entry& first() const { return enqueued_.front(); }

    void giveBackFirst();
    void giveBackAll();

    /// Moves the oldest buffer that was given back to `entry`. The buffer is then with the
    /// application again. Returns false if no buffer was given back.
    bool takeGivenBack(Entry& entry);

 private:
    std::unordered_map<AudioQueueBufferRef, std::unique_ptr<Memory>> memories_;
    std::deque<Entry> enqueued_;
    std::deque<Entry> givenBack_;
};

}  // namespace zav::detail
