#include "QueueUnderTest.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <set>
#include <utility>

#include "ZAVAudioStreaming/queues/BufferQueue.hpp"
#include "tests/support/Ramp.hpp"

namespace zav::test {
namespace {

std::mutex queuesMutex;
std::set<AudioQueueRef> queues;

template <class Queues>
bool areIdle(const Queues& these) {
    return std::all_of(these.begin(), these.end(),
                       [](AudioQueueRef queue) { return queue->queue->isIdle(); });
}

/// A call waits three seconds at most for a server that does not answer. The rest is for a slow
/// machine.
constexpr std::chrono::seconds kLongestCall{15};

template <class Call>
OSStatus inTime(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    const OSStatus status = call();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kLongestCall);
    return status;
}

}  // namespace

void settleQueues() {
    for (;;) {
        {
            const std::lock_guard lock(queuesMutex);
            if (areIdle(queues)) {
                return;
            }
        }
        std::this_thread::yield();
    }
}

void settle(std::initializer_list<AudioQueueRef> these) {
    while (!areIdle(these)) {
        std::this_thread::yield();
    }
}

void QueueUnderTest::take(AudioQueueRef queue) {
    queue_ = queue;
    const std::lock_guard lock(queuesMutex);
    queues.insert(queue);
}

QueueUnderTest::~QueueUnderTest() {
    dispose();
    // The callback that disposed of the queue may not have returned yet.
    while (running_ > 0) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(wasConcurrent_);
}

OSStatus QueueUnderTest::start() {
    return inTime([this] { return AudioQueueStart(queue_, nullptr); });
}

OSStatus QueueUnderTest::stop(bool isImmediate) {
    return inTime([this, isImmediate] { return AudioQueueStop(queue_, isImmediate); });
}

OSStatus QueueUnderTest::pause() {
    return inTime([this] { return AudioQueuePause(queue_); });
}

void QueueUnderTest::dispose(bool isImmediate) {
    if (queue_ == nullptr) {
        return;
    }
    {
        const std::lock_guard lock(queuesMutex);
        queues.erase(queue_);
    }
    EXPECT_EQ(inTime([this, isImmediate] { return AudioQueueDispose(queue_, isImmediate); }),
              noErr);
    queue_ = nullptr;  // not earlier: callbacks use it until the disposal is over
}

bool QueueUnderTest::isRunning(AudioQueueRef queue) {
    std::uint32_t value = 2;
    EXPECT_EQ(readAudioQueueProperty(queue, kAudioQueueProperty_IsRunning, value), noErr);
    return value != 0;
}

double QueueUnderTest::currentFrame() const {
    AudioTimeStamp now;
    EXPECT_EQ(AudioQueueGetCurrentTime(queue_, nullptr, &now, nullptr), noErr);
    return now.mSampleTime;
}

AudioQueueBufferRef QueueUnderTest::allocate(std::uint32_t byteCount) {
    AudioQueueBufferRef buffer = nullptr;
    EXPECT_EQ(AudioQueueAllocateBuffer(queue_, byteCount, &buffer), noErr);
    return buffer;
}

void QueueUnderTest::enqueueFull(AudioQueueBufferRef buffer) {
    buffer->mAudioDataByteSize = buffer->mAudioDataBytesCapacity;
    EXPECT_EQ(AudioQueueEnqueueBuffer(queue_, buffer, 0, nullptr), noErr);
}

std::vector<AudioQueueBufferRef> QueueUnderTest::enqueueNew(std::size_t bufferCount,
                                                            std::uint32_t byteCount) {
    std::vector<AudioQueueBufferRef> buffers;
    while (buffers.size() < bufferCount) {
        buffers.push_back(allocate(byteCount));
        std::memset(buffers.back()->mAudioData, 0, byteCount);
        enqueueFull(buffers.back());
    }
    return buffers;
}

std::vector<QueueUnderTest::Return> QueueUnderTest::returns() const {
    const std::lock_guard lock(mutex_);
    return returns_;
}

std::size_t QueueUnderTest::returnCount() const {
    const std::lock_guard lock(mutex_);
    return returns_.size();
}

void QueueUnderTest::forget() {
    const std::lock_guard lock(mutex_);
    returns_.clear();
}

void QueueUnderTest::note(AudioQueueRef queue, Return returned) {
    if (++running_ > 1) {
        wasConcurrent_ = true;
    }
    AudioQueueBufferRef const buffer = returned.buffer;
    returned.isQueueRunning = isRunning(queue);
    returned.thread = std::this_thread::get_id();
    {
        const std::lock_guard lock(mutex_);
        returns_.push_back(std::move(returned));
    }
    if (onReturn) {
        onReturn(buffer);
    }
    --running_;
}

OutputUnderTest::OutputUnderTest(const AudioStreamBasicDescription& format,
                                 DispatchQueueRef dispatchQueue) {
    if (dispatchQueue == nullptr) {
        dispatchQueue = &DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated);
    }
    AudioQueueRef queue = nullptr;
    EXPECT_EQ(AudioQueueNewOutputWithDispatchQueue(
                  &queue, &format, 0, dispatchQueue,
                  [this](AudioQueueRef from, AudioQueueBufferRef buffer) { note(from, {buffer}); }),
              noErr);
    take(queue);
}

AudioQueueBufferRef OutputUnderTest::enqueue(const void* bytes, std::size_t byteCount) {
    AudioQueueBufferRef const buffer = allocate(static_cast<std::uint32_t>(byteCount));
    std::memcpy(buffer->mAudioData, bytes, byteCount);
    enqueueFull(buffer);
    return buffer;
}

InputUnderTest::InputUnderTest(const AudioStreamBasicDescription& format) {
    const auto callback = [](void* userData, AudioQueueRef from, AudioQueueBufferRef buffer,
                             const AudioTimeStamp* startTime, std::uint32_t packetCount,
                             const AudioStreamPacketDescription* packets) {
        const auto* const bytes = static_cast<const std::byte*>(buffer->mAudioData);
        static_cast<InputUnderTest*>(userData)->note(from,
                                                     {buffer,
                                                      {bytes, bytes + buffer->mAudioDataByteSize},
                                                      startTime->mSampleTime,
                                                      {packets, packets + packetCount}});
    };
    AudioQueueRef queue = nullptr;
    EXPECT_EQ(AudioQueueNewInput(&format, callback, this, nullptr, nullptr, 0, &queue), noErr);
    take(queue);
}

void InputUnderTest::recycle() {
    onReturn = [this](AudioQueueBufferRef buffer) {
        if (isRunning()) {
            const OSStatus status = AudioQueueEnqueueBuffer(get(), buffer, 0, nullptr);
            // The test may have ended and begun to dispose of the queue.
            EXPECT_TRUE(status == noErr || status == kAudioQueueErr_DisposalPending) << status;
        }
    };
}

std::vector<std::byte> InputUnderTest::captured() const {
    std::vector<std::byte> bytes;
    for (const Return& returned : returns()) {
        bytes.insert(bytes.end(), returned.bytes.begin(), returned.bytes.end());
    }
    return bytes;
}

std::vector<std::int16_t> InputUnderTest::capturedWithoutSilence() const {
    return withoutSilence(samplesOf(captured()));
}

}  // namespace zav::test
