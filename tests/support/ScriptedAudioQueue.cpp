#include "tests/support/ScriptedAudioQueue.hpp"

#include <algorithm>
#include <memory>
#include <utility>

namespace zav {

struct OpaqueAudioQueue {};

namespace test {
namespace {

OpaqueAudioQueue theQueue;
std::unique_ptr<ScriptedAudioQueue> currentQueue = std::make_unique<ScriptedAudioQueue>();

/// Notes a call and, unless it fails, applies its effect.
template <class Effect>
OSStatus perform(const std::string& call, const std::string& arguments, Effect effect) {
    ScriptedAudioQueue& queue = *currentQueue;
    OSStatus status = noErr;
    {
        const std::lock_guard lock(queue.mutex);
        status = queue.note(call, arguments);
        if (status == noErr) {
            effect(queue);
        }
    }
    if (const auto hook = queue.onCall) {
        hook(call + arguments);
    }
    return status;
}

/// The scripted queue hands back its buffers without it.
class UnusedDispatchQueue : public DispatchQueue {
 public:
    void async(std::function<void()> /*work*/) override {}
};

}  // namespace

void ScriptedAudioQueue::handBack(std::span<const std::byte> captured,
                                  std::span<const AudioStreamPacketDescription> packets) {
    std::unique_lock lock(mutex);
    const bool isPlayed = isRunning && !isPaused && returningCount == 0;
    const AudioQueueBufferRef buffer = enqueued.at(0);
    enqueued.pop_front();
    returningCount -= std::min<std::size_t>(returningCount, 1);
    if (isStopping && enqueued.empty()) {
        halt();
    }
    auto* const bytes = static_cast<std::byte*>(buffer->mAudioData);
    if (inputCallback == nullptr) {
        if (isPlayed) {
            played.insert(played.end(), bytes, bytes + buffer->mAudioDataByteSize);
        }
        const auto block = outputCallback;  // a copy, because it may dispose of the queue
        lock.unlock();
        block(&theQueue, buffer);
        return;
    }
    lock.unlock();
    std::ranges::copy(captured, bytes);
    buffer->mAudioDataByteSize = static_cast<std::uint32_t>(captured.size());
    const AudioTimeStamp startTime;
    inputCallback(userData, &theQueue, buffer, &startTime,
                  static_cast<std::uint32_t>(packets.size()),
                  packets.empty() ? nullptr : packets.data());
}

void ScriptedAudioQueue::handBackAll() {
    for (std::size_t rest = enqueued.size(); rest > 0; --rest) {
        handBack();
    }
}

std::jthread ScriptedAudioQueue::startDevice(std::function<void()> handOneBack) {
    return std::jthread([this, handOneBack = std::move(handOneBack)](const std::stop_token& end) {
        while (!end.stop_requested()) {
            std::unique_lock lock(mutex);
            const bool hasBuffer =
                returningCount > 0 || (isRunning && !isPaused && !enqueued.empty());
            lock.unlock();
            if (hasBuffer) {
                handOneBack();
            } else {
                std::this_thread::yield();
            }
        }
    });
}

void ScriptedAudioQueue::halt() {
    isRunning = isPaused = isStopping = false;
    hasStopped = true;
    returningCount = enqueued.size();
}

ScriptedAudioQueue& scriptedQueue() {
    return *currentQueue;
}

void resetAudioQueue() {
    currentQueue = std::make_unique<ScriptedAudioQueue>();
}

}  // namespace test

using test::perform;
using test::theQueue;

DispatchQueue& DispatchQueue::global(QualityOfService /*qos*/) {
    static test::UnusedDispatchQueue queue;
    return queue;
}

OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* format,
                            AudioQueueInputCallback callback, void* userData,
                            AudioQueueRunLoopRef runLoop, AudioQueueRunLoopMode mode,
                            std::uint32_t flags, AudioQueueRef* outQueue) {
    const bool isPlain = runLoop == nullptr && mode == nullptr && flags == 0;
    return perform("newInput", isPlain ? "" : " on a run loop", [&](auto& queue) {
        queue.format = *format;
        queue.inputCallback = callback;
        queue.userData = userData;
        *outQueue = &theQueue;
    });
}

OSStatus AudioQueueNewOutputWithDispatchQueue(AudioQueueRef* outQueue,
                                              const AudioStreamBasicDescription* format,
                                              std::uint32_t flags, DispatchQueueRef dispatchQueue,
                                              AudioQueueOutputCallbackBlock callback) {
    const auto& usual = DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated);
    const bool isPlain = flags == 0 && dispatchQueue == &usual;
    return perform("newOutput", isPlain ? "" : " elsewhere", [&](auto& queue) {
        queue.format = *format;
        queue.outputCallback = std::move(callback);
        *outQueue = &theQueue;
    });
}

OSStatus AudioQueueAllocateBuffer(AudioQueueRef, std::uint32_t size, AudioQueueBufferRef* buffer) {
    return perform("allocate", " " + std::to_string(size), [&](auto& queue) {
        auto& bytes = queue.bufferBytes.emplace_back(size);
        *buffer = &queue.buffers.emplace_back(AudioQueueBuffer{size, bytes.data()});
    });
}

OSStatus AudioQueueEnqueueBuffer(AudioQueueRef, AudioQueueBufferRef buffer,
                                 std::uint32_t packetCount,
                                 const AudioStreamPacketDescription* descriptions) {
    const auto packets = packetCount == 0 ? "" : " " + std::to_string(packetCount) + " packets";
    return perform("enqueue", packets, [&](auto& queue) {
        queue.enqueued.push_back(buffer);
        queue.descriptions.push_back(descriptions);
        // A stopped input queue returns the buffer at once.
        queue.returningCount += queue.hasStopped && queue.inputCallback != nullptr ? 1 : 0;
    });
}

OSStatus AudioQueueStart(AudioQueueRef, const AudioTimeStamp* startTime) {
    return perform("start", startTime == nullptr ? "" : " later", [](auto& queue) {
        queue.isRunning = true;
        queue.isPaused = queue.isStopping = queue.hasStopped = false;
    });
}

OSStatus AudioQueuePause(AudioQueueRef) {
    return perform("pause", "", [](auto& queue) { queue.isPaused = queue.isRunning; });
}

OSStatus AudioQueueStop(AudioQueueRef, bool isImmediate) {
    return perform("stop", isImmediate ? "" : " when played", [&](auto& queue) {
        queue.isStopping = true;
        if (isImmediate || !queue.isRunning || queue.enqueued.empty()) {
            queue.halt();
        }
    });
}

OSStatus AudioQueueDispose(AudioQueueRef, bool isImmediate) {
    return perform("dispose", isImmediate ? "" : " when played",
                   [](auto& queue) { queue.outputCallback = nullptr; });
}

OSStatus AudioQueueGetCurrentTime(AudioQueueRef, AudioQueueTimelineRef timeline,
                                  AudioTimeStamp* time, bool* hasDiscontinuity) {
    const bool isPlain = timeline == nullptr && hasDiscontinuity == nullptr;
    return perform("time", isPlain ? "" : " of a timeline",
                   [&](auto& queue) { time->mSampleTime = queue.sampleTime; });
}

OSStatus AudioQueueGetPropertySize(AudioQueueRef, AudioQueuePropertyID id, std::uint32_t* size) {
    return perform("size of " + fourCharText(id), "",
                   [&](auto& queue) { queue.propertySize(id, *size); });
}

OSStatus AudioQueueGetProperty(AudioQueueRef, AudioQueuePropertyID id, void* data,
                               std::uint32_t* size) {
    OSStatus answer = noErr;
    const auto room = *size == 0 ? " without room" : "";
    const OSStatus status = perform("get " + fourCharText(id), room, [&](auto& queue) {
        queue.setProperty(kAudioQueueProperty_IsRunning, std::uint32_t{queue.isRunning});
        answer = queue.readProperty(id, data);
    });
    return status == noErr ? answer : status;
}

}  // namespace zav
