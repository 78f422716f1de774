#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <system_error>
#include <utility>

#include "ZAVAudioStreaming/queues/BufferQueue.hpp"
#include "ZAVAudioStreaming/queues/InputSide.hpp"
#include "ZAVAudioStreaming/queues/OutputSide.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav {

using namespace detail;

namespace {

// The service throws nothing.
template <class Call>
OSStatus queueStatusOf(Call call) noexcept {
    try {
        return call();
    } catch (const StatusFailure& failure) {
        return failure.status();
    } catch (const std::bad_alloc&) {
        return kAudioQueueErr_NoMemory;
    } catch (const std::system_error&) {
        // The system has no more threads or descriptors.
        return kAudioQueueErr_NoMemory;
    }
}

}  // namespace

OSStatus AudioQueueNewInput(const AudioStreamBasicDescription* inFormat,
                            AudioQueueInputCallback inCallbackProc, void* inUserData,
                            AudioQueueRunLoopRef /*inCallbackRunLoop*/,
                            AudioQueueRunLoopMode /*inCallbackRunLoopMode*/,
                            std::uint32_t /*inFlags*/, AudioQueueRef* outAQ) {
    return queueStatusOf([&] {
        if (inFormat == nullptr || inCallbackProc == nullptr || outAQ == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        auto handle = std::make_unique<OpaqueAudioQueue>();
        handle->queue = BufferQueue::make(
            handle.get(),
            [inCallbackProc, inUserData](AudioQueueRef queue, const BufferLedger::Entry& entry) {
                inCallbackProc(inUserData, queue, entry.buffer, &entry.startTime,
                               static_cast<std::uint32_t>(entry.descriptions.size()),
                               entry.descriptions.empty() ? nullptr : entry.descriptions.data());
            },
            [&](std::function<void()> wake) {
                return std::make_unique<InputSide>(*inFormat, std::move(wake));
            },
            makeThreadRunner);
        *outAQ = handle.release();
        return noErr;
    });
}

OSStatus AudioQueueNewOutputWithDispatchQueue(AudioQueueRef* outAQ,
                                              const AudioStreamBasicDescription* inFormat,
                                              std::uint32_t /*inFlags*/,
                                              DispatchQueueRef inCallbackDispatchQueue,
                                              AudioQueueOutputCallbackBlock inCallbackBlock) {
    return queueStatusOf([&] {
        if (outAQ == nullptr || inFormat == nullptr || inCallbackDispatchQueue == nullptr ||
            inCallbackBlock == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        auto handle = std::make_unique<OpaqueAudioQueue>();
        handle->queue = BufferQueue::make(
            handle.get(),
            [block = std::move(inCallbackBlock)](AudioQueueRef queue,
                                                 const BufferLedger::Entry& entry) {
                block(queue, entry.buffer);
            },
            [&](std::function<void()> wake) {
                return std::make_unique<OutputSide>(*inFormat, std::move(wake));
            },
            [&](std::function<void()> deliver) {
                return makeDispatchRunner(*inCallbackDispatchQueue, std::move(deliver));
            });
        *outAQ = handle.release();
        return noErr;
    });
}

OSStatus AudioQueueAllocateBuffer(AudioQueueRef inAQ, std::uint32_t inBufferByteSize,
                                  AudioQueueBufferRef* outBuffer) {
    return queueStatusOf([&] {
        if (inBufferByteSize == 0 || outBuffer == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        return inAQ->queue->allocate(inBufferByteSize, *outBuffer);
    });
}

OSStatus AudioQueueEnqueueBuffer(AudioQueueRef inAQ, AudioQueueBufferRef inBuffer,
                                 std::uint32_t inNumPacketDescs,
                                 const AudioStreamPacketDescription* inPacketDescs) {
    return queueStatusOf([&] {
        if (inBuffer == nullptr || (inNumPacketDescs > 0 && inPacketDescs == nullptr)) {
            return kAudioQueueErr_InvalidParameter;
        }
        return inAQ->queue->enqueue(inBuffer, {inPacketDescs, inNumPacketDescs});
    });
}

OSStatus AudioQueueStart(AudioQueueRef inAQ, const AudioTimeStamp* inStartTime) {
    return queueStatusOf([&] {
        return inStartTime == nullptr ? inAQ->queue->start() : kAudioQueueErr_InvalidParameter;
    });
}

OSStatus AudioQueuePause(AudioQueueRef inAQ) {
    return queueStatusOf([&] { return inAQ->queue->pause(); });
}

OSStatus AudioQueueStop(AudioQueueRef inAQ, bool inImmediate) {
    return queueStatusOf([&] { return inAQ->queue->stop(inImmediate); });
}

OSStatus AudioQueueDispose(AudioQueueRef inAQ, bool inImmediate) {
    // The handle is deleted before this returns.
    const auto queue = inAQ->queue;
    return queueStatusOf([&] { return queue->dispose(inImmediate); });
}

OSStatus AudioQueueGetCurrentTime(AudioQueueRef inAQ, AudioQueueTimelineRef /*inTimeline*/,
                                  AudioTimeStamp* outTimeStamp, bool* outTimelineDiscontinuity) {
    return queueStatusOf([&] {
        if (outTimeStamp == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        outTimeStamp->mSampleTime = inAQ->queue->currentFrame();
        if (outTimelineDiscontinuity != nullptr) {
            *outTimelineDiscontinuity = false;
        }
        return noErr;
    });
}

OSStatus AudioQueueGetPropertySize(AudioQueueRef inAQ, AudioQueuePropertyID inID,
                                   std::uint32_t* outDataSize) {
    return queueStatusOf([&] {
        if (outDataSize == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        *outDataSize = static_cast<std::uint32_t>(inAQ->queue->property(inID, 0).size());
        return noErr;
    });
}

OSStatus AudioQueueGetProperty(AudioQueueRef inAQ, AudioQueuePropertyID inID, void* outData,
                               std::uint32_t* ioDataSize) {
    return queueStatusOf([&] {
        if (outData == nullptr || ioDataSize == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        const std::vector<std::byte> value = inAQ->queue->property(inID, *ioDataSize);
        if (*ioDataSize < value.size()) {
            return kAudioQueueErr_InvalidPropertySize;
        }
        std::copy(value.begin(), value.end(), static_cast<std::byte*>(outData));
        *ioDataSize = static_cast<std::uint32_t>(value.size());
        return noErr;
    });
}

OSStatus AudioQueueSetProperty(AudioQueueRef inAQ, AudioQueuePropertyID inID, const void* inData,
                               std::uint32_t inDataSize) {
    return queueStatusOf([&] {
        if (inData == nullptr) {
            return kAudioQueueErr_InvalidParameter;
        }
        if (inID != kAudioQueueProperty_MagicCookie) {
            return kAudioQueueErr_InvalidProperty;
        }
        inAQ->queue->setMagicCookie({static_cast<const std::byte*>(inData), inDataSize});
        return noErr;
    });
}

}  // namespace zav
