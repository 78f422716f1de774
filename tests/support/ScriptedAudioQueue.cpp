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

/// Notes a call and, unless it is to fail, does what it does.
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

/// The scripted queue hands buffers back by itself.
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
        const auto block = outputCallback;  // survives a queue that is disposed of inside it
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
            hasBuffer ? handOneBack() : std::this_thread::yield();
        }
    });
}

/// Under the lock.
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

OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* inFormat,
                            AudioQueueInputCallback inCallbackProc, void* inUserData,
                            AudioQueueRunLoopRef inCallbackRunLoop,
                            AudioQueueRunLoopMode inCallbackRunLoopMode, std::uint32_t inFlags,
                            AudioQueueRef* outAQ) {
    const bool isPlain =
        inCallbackRunLoop == nullptr && inCallbackRunLoopMode == nullptr && inFlags == 0;
    return perform("newInput", isPlain ? "" : " on a run loop", [&](auto& queue) {
        queue.format = *inFormat;
        queue.inputCallback = inCallbackProc;
        queue.userData = inUserData;
        *outAQ = &theQueue;
    });
}

OSStatus AudioQueueNewOutputWithDispatchQueue(AudioQueueRef* outAQ,
                                              const AudioStreamBasicDescription* inFormat,
                                              std::uint32_t inFlags,
                                              DispatchQueueRef inCallbackDispatchQueue,
                                              AudioQueueOutputCallbackBlock inCallbackBlock) {
    const auto& usual = DispatchQueue::global(DispatchQueue::QualityOfService::userInitiated);
    const bool isPlain = inFlags == 0 && inCallbackDispatchQueue == &usual;
    return perform("newOutput", isPlain ? "" : " elsewhere", [&](auto& queue) {
        queue.format = *inFormat;
        queue.outputCallback = std::move(inCallbackBlock);
        *outAQ = &theQueue;
    });
}

OSStatus AudioQueueAllocateBuffer(AudioQueueRef /*inAQ*/, std::uint32_t inBufferByteSize,
                                  AudioQueueBufferRef* outBuffer) {
    return perform("allocate", " " + std::to_string(inBufferByteSize), [&](auto& queue) {
        auto& bytes = queue.bufferBytes.emplace_back(inBufferByteSize);
        *outBuffer = &queue.buffers.emplace_back(AudioQueueBuffer{inBufferByteSize, bytes.data()});
    });
}

OSStatus AudioQueueEnqueueBuffer(AudioQueueRef /*inAQ*/, AudioQueueBufferRef inBuffer,
                                 std::uint32_t inNumPacketDescs,
                                 const AudioStreamPacketDescription* inPacketDescs) {
    const std::string packets =
        inNumPacketDescs == 0 ? "" : " " + std::to_string(inNumPacketDescs) + " packets";
    return perform("enqueue", packets, [&](auto& queue) {
        queue.enqueued.push_back(inBuffer);
        queue.descriptions.push_back(inPacketDescs);
        // A recording node enqueues nothing but what a callback has given it.
        queue.returningCount += queue.hasStopped && queue.inputCallback != nullptr ? 1 : 0;
    });
}

OSStatus AudioQueueStart(AudioQueueRef /*inAQ*/, const AudioTimeStamp* inStartTime) {
    return perform("start", inStartTime == nullptr ? "" : " later", [](auto& queue) {
        queue.isRunning = true;
        queue.isPaused = queue.isStopping = queue.hasStopped = false;
    });
}

OSStatus AudioQueuePause(AudioQueueRef /*inAQ*/) {
    return perform("pause", "", [](auto& queue) { queue.isPaused = queue.isRunning; });
}

OSStatus AudioQueueStop(AudioQueueRef /*inAQ*/, bool inImmediate) {
    return perform("stop", inImmediate ? "" : " when played", [&](auto& queue) {
        queue.isStopping = true;
        if (inImmediate || !queue.isRunning || queue.enqueued.empty()) {
            queue.halt();
        }
    });
}

OSStatus AudioQueueDispose(AudioQueueRef /*inAQ*/, bool inImmediate) {
    return perform("dispose", inImmediate ? "" : " when played",
                   [](auto& queue) { queue.outputCallback = nullptr; });
}

OSStatus AudioQueueGetCurrentTime(AudioQueueRef /*inAQ*/, AudioQueueTimelineRef inTimeline,
                                  AudioTimeStamp* outTimeStamp, bool* outTimelineDiscontinuity) {
    const bool isPlain = inTimeline == nullptr && outTimelineDiscontinuity == nullptr;
    return perform("time", isPlain ? "" : " of a timeline",
                   [&](auto& queue) { outTimeStamp->mSampleTime = queue.sampleTime; });
}

OSStatus AudioQueueGetPropertySize(AudioQueueRef /*inAQ*/, AudioQueuePropertyID inID,
                                   std::uint32_t* outDataSize) {
    return perform("size of " + fourCharText(inID), "",
                   [&](auto& queue) { queue.propertySize(inID, *outDataSize); });
}

OSStatus AudioQueueGetProperty(AudioQueueRef /*inAQ*/, AudioQueuePropertyID inID, void* outData,
                               std::uint32_t* ioDataSize) {
    OSStatus answer = noErr;
    const OSStatus status = perform(
        "get " + fourCharText(inID), *ioDataSize == 0 ? " without room" : "", [&](auto& queue) {
            queue.setProperty(kAudioQueueProperty_IsRunning, std::uint32_t{queue.isRunning});
            answer = queue.readProperty(inID, outData);
        });
    return status == noErr ? answer : status;
}

}  // namespace zav
