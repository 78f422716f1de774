#include "tests/support/ScriptedAudioQueue.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/support/WaitFor.hpp"

namespace zav {

struct OpaqueAudioQueue {};

namespace test {
namespace {

OpaqueAudioQueue theQueue;
std::unique_ptr<ScriptedAudioQueue> currentQueue = std::make_unique<ScriptedAudioQueue>();

/// Notes a call and, unless it is to fail, does what it does.
template <class Effect>
OSStatus perform(const std::string& call, Effect effect) {
    OSStatus status = noErr;
    {
        const std::lock_guard lock(currentQueue->mutex);
        currentQueue->calls.push_back(call);
        const auto failure = currentQueue->failures.find(call);
        status = failure == currentQueue->failures.end() ? effect() : failure->second;
    }
    currentQueue->changed.notify_all();
    if (const auto hook = currentQueue->onCall) {
        hook(call);
    }
    return status;
}

OSStatus writeProperty(AudioQueuePropertyID property, void* outData, std::uint32_t size) {
    const auto write = [&](const auto& value) {
        std::memcpy(outData, &value, sizeof(value));
        return noErr;
    };
    switch (property) {
        case kAudioQueueProperty_IsRunning:
            return write(std::uint32_t{currentQueue->isRunning});
        case kAudioQueueProperty_MaximumOutputPacketSize:
            return write(currentQueue->maximumPacketSize);
        case kAudioQueueProperty_StreamDescription:
            currentQueue->roomForStreamDescription = size;
            return currentQueue->streamDescription ? write(*currentQueue->streamDescription)
                                                   : kAudioQueueErr_InvalidPropertySize;
        case kAudioQueueProperty_MagicCookie:
            std::copy(currentQueue->magicCookie.begin(), currentQueue->magicCookie.end(),
                      static_cast<std::byte*>(outData));
            return noErr;
        default:
            return kAudioQueueErr_InvalidProperty;
    }
}

class UnusedDispatchQueue : public DispatchQueue {
 public:
    void async(std::function<void()> /*work*/) override {
        throw std::logic_error("the scripted queue hands buffers back by itself");
    }
};

/// Takes the first buffer out of the queue. Under its lock.
AudioQueueBufferRef takeFirst() {
    const AudioQueueBufferRef buffer = currentQueue->enqueued.at(0);
    currentQueue->enqueued.pop_front();
    if (currentQueue->returningCount > 0) {
        --currentQueue->returningCount;
    }
    if (currentQueue->isStopping && currentQueue->enqueued.empty()) {
        currentQueue->isStopping = currentQueue->isRunning = currentQueue->isPaused = false;
    }
    currentQueue->changed.notify_all();
    return buffer;
}

}  // namespace

std::size_t ScriptedAudioQueue::count(const std::string& call) const {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

void ScriptedAudioQueue::handBack() {
    if (inputCallback != nullptr) {
        capture({});
        return;
    }
    std::unique_lock lock(mutex);
    const bool isPlayed = isRunning && !isPaused && returningCount == 0;
    const AudioQueueBufferRef buffer = takeFirst();
    if (isPlayed) {
        const auto* const bytes = static_cast<const std::byte*>(buffer->mAudioData);
        played.insert(played.end(), bytes, bytes + buffer->mAudioDataByteSize);
    }
    const auto block = outputCallback;  // survives a queue that is disposed of inside it
    lock.unlock();
    block(&theQueue, buffer);
}

void ScriptedAudioQueue::handBackAll() {
    for (std::size_t rest = enqueued.size(); rest > 0; --rest) {
        handBack();
    }
}

void ScriptedAudioQueue::capture(std::span<const std::byte> bytes,
                                 std::span<const AudioStreamPacketDescription> descriptions) {
    std::unique_lock lock(mutex);
    const AudioQueueBufferRef buffer = takeFirst();
    lock.unlock();
    std::copy(bytes.begin(), bytes.end(), static_cast<std::byte*>(buffer->mAudioData));
    buffer->mAudioDataByteSize = static_cast<std::uint32_t>(bytes.size());
    const AudioTimeStamp startTime;
    inputCallback(userData, &theQueue, buffer, &startTime,
                  static_cast<std::uint32_t>(descriptions.size()),
                  descriptions.empty() ? nullptr : descriptions.data());
}

bool ScriptedAudioQueue::waitForBuffer() {
    std::unique_lock lock(mutex);
    const auto canHandBack = [this] {
        return returningCount > 0 || (isRunning && !isPaused && !enqueued.empty());
    };
    changed.wait_for(lock, kWaitLimit, [&] { return deviceHasEnded || canHandBack(); });
    return canHandBack();
}

bool ScriptedAudioQueue::waitUntil(const std::function<bool(ScriptedAudioQueue&)>& condition) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, kWaitLimit, [&] { return condition(*this); });
}

void ScriptedAudioQueue::endDevice() {
    const std::lock_guard lock(mutex);
    deviceHasEnded = true;
    changed.notify_all();
}

ScriptedAudioQueue& scriptedQueue() {
    return *currentQueue;
}

void resetAudioQueue() {
    currentQueue = std::make_unique<ScriptedAudioQueue>();
}

}  // namespace test

using test::currentQueue;
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
    return perform(isPlain ? "newInput" : "newInput on a run loop", [&] {
        currentQueue->format = *inFormat;
        currentQueue->inputCallback = inCallbackProc;
        currentQueue->userData = inUserData;
        *outAQ = &theQueue;
        return noErr;
    });
}

OSStatus AudioQueueNewOutputWithDispatchQueue(AudioQueueRef* outAQ,
                                              const AudioStreamBasicDescription* inFormat,
                                              std::uint32_t inFlags,
                                              DispatchQueueRef inCallbackDispatchQueue,
                                              AudioQueueOutputCallbackBlock inCallbackBlock) {
    return perform(inFlags == 0 ? "newOutput" : "newOutput with flags", [&] {
        currentQueue->format = *inFormat;
        currentQueue->dispatchQueue = inCallbackDispatchQueue;
        currentQueue->outputCallback = std::move(inCallbackBlock);
        *outAQ = &theQueue;
        return noErr;
    });
}

OSStatus AudioQueueAllocateBuffer(AudioQueueRef /*inAQ*/, std::uint32_t inBufferByteSize,
                                  AudioQueueBufferRef* outBuffer) {
    return perform("allocate", [&] {
        currentQueue->allocatedSizes.push_back(inBufferByteSize);
        auto& bytes = currentQueue->bufferBytes.emplace_back(inBufferByteSize);
        *outBuffer =
            &currentQueue->buffers.emplace_back(AudioQueueBuffer{inBufferByteSize, bytes.data()});
        return noErr;
    });
}

OSStatus AudioQueueEnqueueBuffer(AudioQueueRef /*inAQ*/, AudioQueueBufferRef inBuffer,
                                 std::uint32_t inNumPacketDescs,
                                 const AudioStreamPacketDescription* inPacketDescs) {
    return perform("enqueue", [&] {
        const auto* const bytes = static_cast<const std::byte*>(inBuffer->mAudioData);
        currentQueue->enqueues.push_back(
            {{bytes, bytes + inBuffer->mAudioDataByteSize}, inNumPacketDescs, inPacketDescs});
        // A recording node enqueues nothing but what a callback has given it.
        const bool comesTooLate =
            currentQueue->hasStopped && currentQueue->inputCallback != nullptr;
        if (comesTooLate) {
            const auto end = static_cast<std::ptrdiff_t>(currentQueue->returningCount++);
            currentQueue->enqueued.insert(currentQueue->enqueued.begin() + end, inBuffer);
        } else {
            currentQueue->enqueued.push_back(inBuffer);
        }
        return noErr;
    });
}

OSStatus AudioQueueStart(AudioQueueRef /*inAQ*/, const AudioTimeStamp* inStartTime) {
    return perform(inStartTime == nullptr ? "start" : "start later", [] {
        currentQueue->isRunning = true;
        currentQueue->isPaused = currentQueue->isStopping = currentQueue->hasStopped = false;
        return noErr;
    });
}

OSStatus AudioQueuePause(AudioQueueRef /*inAQ*/) {
    return perform("pause", [] {
        currentQueue->isPaused = currentQueue->isRunning;
        return noErr;
    });
}

OSStatus AudioQueueStop(AudioQueueRef /*inAQ*/, bool inImmediate) {
    return perform(inImmediate ? "stop" : "stop when played", [&] {
        if (inImmediate || !currentQueue->isRunning || currentQueue->enqueued.empty()) {
            currentQueue->isRunning = currentQueue->isPaused = currentQueue->isStopping = false;
            currentQueue->returningCount = currentQueue->enqueued.size();
            currentQueue->hasStopped = true;
        } else {
            currentQueue->isStopping = true;
        }
        return noErr;
    });
}

OSStatus AudioQueueDispose(AudioQueueRef /*inAQ*/, bool inImmediate) {
    return perform(inImmediate ? "dispose" : "dispose when played", [] {
        currentQueue->outputCallback = nullptr;
        return noErr;
    });
}

OSStatus AudioQueueGetCurrentTime(AudioQueueRef /*inAQ*/, AudioQueueTimelineRef inTimeline,
                                  AudioTimeStamp* outTimeStamp, bool* outTimelineDiscontinuity) {
    const bool isPlain = inTimeline == nullptr && outTimelineDiscontinuity == nullptr;
    return perform(isPlain ? "time" : "time of a timeline", [&] {
        outTimeStamp->mSampleTime = currentQueue->sampleTime;
        return noErr;
    });
}

OSStatus AudioQueueGetPropertySize(AudioQueueRef /*inAQ*/, AudioQueuePropertyID inID,
                                   std::uint32_t* outDataSize) {
    return perform("size of " + fourCharText(inID), [&] {
        *outDataSize = static_cast<std::uint32_t>(currentQueue->magicCookie.size());
        return noErr;
    });
}

OSStatus AudioQueueGetProperty(AudioQueueRef /*inAQ*/, AudioQueuePropertyID inID, void* outData,
                               std::uint32_t* ioDataSize) {
    return perform("get " + fourCharText(inID),
                   [&] { return test::writeProperty(inID, outData, *ioDataSize); });
}

}  // namespace zav
