#include "ZAVAudioStreaming/queues/InputQueue.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "ZAVAudioStreaming/queues/PcmConversion.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

/// What an application can be late with its buffers before the device has to hold audio back.
constexpr double kRingInSeconds = 1;

/// After this much a buffer of packets comes back though it is not full: it could hold a minute.
constexpr double kPacketBufferInSeconds = 0.5;

std::unique_ptr<QueueEncoder> makeEncoder(const AudioStreamBasicDescription& format) {
    if (pcmOfDevice(format)) {
        return makePcmEncoder(format);
    }
    const auto* const codecs =
        format.mFormatID == kAudioFormatLinearPCM ? nullptr : moduleTable<CompressedCodecs>();
    if (codecs == nullptr) {
        throw StatusFailure(kAudioFormatUnsupportedDataFormatError);
    }
    return codecs->makeEncoder(format);
}

}  // namespace

std::shared_ptr<InputQueue> InputQueue::make(AudioQueueRef handle,
                                             const AudioStreamBasicDescription& format,
                                             AudioQueueInputCallback callback, void* userData) {
    auto queue = std::make_shared<InputQueue>(handle, format, callback, userData);
    queue->setRunner(makeThreadRunner(deliveryTo(queue)));
    return queue;
}

InputQueue::InputQueue(AudioQueueRef handle, const AudioStreamBasicDescription& format,
                       AudioQueueInputCallback callback, void* userData)
    : BufferQueue(handle),
      format_(format),
      callback_(callback),
      userData_(userData),
      encoder_(makeEncoder(format)),
      pcm_(encoder_ != nullptr ? encoder_->pcmFormat() : *pcmOfDevice(format)),
      ring_(pcm_, static_cast<std::size_t>(pcm_.mSampleRate * kRingInSeconds), [this] { wake(); }) {
}

double InputQueue::currentFrame() {
    const std::lock_guard lock(state());
    return static_cast<double>(ring_.capturedFrames()) * format_.mSampleRate / pcm_.mSampleRate;
}

bool InputQueue::lastRunWasPlayedOut() {
    throw StatusFailure(kAudioQueueErr_InvalidProperty);
}

AudioStreamBasicDescription InputQueue::streamFormat() {
    const std::lock_guard lock(state());
    return encoder_ != nullptr ? encoder_->streamFormat() : format_;
}

std::uint32_t InputQueue::maximumPacketSize() {
    const std::lock_guard lock(state());
    return largestPacket();
}

std::uint32_t InputQueue::largestPacket() const {
    return encoder_ != nullptr ? encoder_->maximumPacketSize() : format_.mBytesPerPacket;
}

std::vector<std::byte> InputQueue::magicCookie() {
    const std::lock_guard lock(state());
    if (encoder_ == nullptr) {
        return {};
    }
    const auto cookie = encoder_->magicCookie();
    return {cookie.begin(), cookie.end()};
}

OSStatus InputQueue::setMagicCookie(std::span<const std::byte> /*cookie*/) {
    return kAudioQueueErr_InvalidProperty;
}

OSStatus InputQueue::openDevice() {
    {
        const std::lock_guard lock(state());
        ring_.clear();
        filledFrames_ = 0;
        isInRun_ = true;
    }
    return openStream();
}

OSStatus InputQueue::resumeDevice() {
    return openStream();
}

OSStatus InputQueue::openStream() {
    QueueDevice* const device = queueDevice();
    if (device == nullptr) {
        return kAudioQueueErr_InvalidDevice;
    }
    std::unique_ptr<CaptureStream> stream;
    if (const OSStatus status = device->openCapture(pcm_, ring_, stream); status != noErr) {
        return status;
    }
    const std::lock_guard lock(state());
    stream_.swap(stream);  // the one that a pause has finished closes after the lock
    // That there is room again may have been told to that one.
    stream_->roomAdded();
    return noErr;
}

// A device that captured on during a pause would hand out what was heard in it, or in the moment
// before it a second time. A finished one only keeps watch.
OSStatus InputQueue::pauseDevice() {
    finishStream();
    return noErr;
}

void InputQueue::finishStream() {
    {
        // What the device holds back goes where there is room for it.
        const std::lock_guard lock(state());
        collect();
    }
    stream_->finish();
}

void InputQueue::closeDevice() {
    if (stream_ != nullptr) {
        finishStream();
    }
    std::unique_ptr<CaptureStream> stream;
    const std::lock_guard lock(state());
    stream = std::move(stream_);
}

OSStatus InputQueue::prepare(AudioQueueBuffer& buffer,
                             std::span<const AudioStreamPacketDescription> descriptions) {
    if (!descriptions.empty()) {
        return kAudioQueueErr_InvalidParameter;
    }
    if (buffer.mAudioDataBytesCapacity < largestPacket()) {
        return kAudioQueueErr_InvalidBuffer;
    }
    buffer.mAudioDataByteSize = 0;
    return noErr;
}

void InputQueue::accept(Entry& /*entry*/,
                        std::span<const AudioStreamPacketDescription> /*descriptions*/) {
    wake();
}

void InputQueue::collect() {
    do {
        fillBuffers();
        if (stream_ != nullptr && ring_.takeHeldBack()) {
            stream_->roomAdded();
        }
    } while (!ring_.wakeAt(bytesWorthWaking()));
}

void InputQueue::endRun() {
    if (!std::exchange(isInRun_, false)) {
        return;
    }
    fillBuffers();
    if (encoder_ != nullptr) {
        encoder_->finish(packets_);
        fillFromPackets();
    }
    if (!enqueued().empty() && enqueued().front().buffer->mAudioDataByteSize > 0) {
        giveBackFilled();
    }
    // Left is what the application had no buffers for.
    while (!ring_.peek().empty()) {
        ring_.release(ring_.peek().size());
    }
    forgetPackets();
}

void InputQueue::fillBuffers() {
    if (encoder_ != nullptr) {
        encodeRing();
    } else {
        fillFromRing();
    }
}

void InputQueue::fillFromRing() {
    while (!enqueued().empty()) {
        const auto captured = ring_.peek();
        if (captured.empty()) {
            return;
        }
        const std::size_t size = std::min(roomInFirst(), captured.size());
        takeBytes(captured.first(size), size / pcm_.mBytesPerFrame);
        ring_.release(size);
        if (roomInFirst() == 0) {
            giveBackFilled();
        }
    }
}

void InputQueue::encodeRing() {
    fillFromPackets();
    while (!enqueued().empty() && !ring_.peek().empty()) {
        const auto captured = ring_.peek();
        encoder_->encode(captured, packets_);
        ring_.release(captured.size());
        fillFromPackets();
    }
}

void InputQueue::fillFromPackets() {
    while (!enqueued().empty() && nextByte_ < packets_.bytes.size()) {
        const bool isTaken = packets_.descriptions.empty() ? takeFrames() : takePacket();
        const bool isLongEnough =
            !packets_.descriptions.empty() &&
            static_cast<double>(framesInFirst_) >= kPacketBufferInSeconds * format_.mSampleRate;
        if (!isTaken || isLongEnough) {
            giveBackFilled();
        }
    }
    if (nextByte_ == packets_.bytes.size()) {
        forgetPackets();
    }
}

/// Packets of constant size. False when the first buffer is full.
bool InputQueue::takeFrames() {
    const std::uint32_t packetSize = format_.mBytesPerPacket;
    const std::size_t size = std::min(roomInFirst(), packets_.bytes.size() - nextByte_);
    takeBytes(std::span(packets_.bytes).subspan(nextByte_, size), size / packetSize);
    nextByte_ += size;
    return roomInFirst() > 0;
}

/// One packet of its own size. False when the first buffer has no room for it.
bool InputQueue::takePacket() {
    AudioStreamPacketDescription packet = packets_.descriptions[nextPacket_];
    if (packet.mDataByteSize > roomInFirst()) {
        return false;
    }
    Entry& entry = enqueued().front();
    const auto bytes =
        std::span(packets_.bytes)
            .subspan(static_cast<std::size_t>(packet.mStartOffset), packet.mDataByteSize);
    packet.mStartOffset = entry.buffer->mAudioDataByteSize;
    takeBytes(bytes, packet.mVariableFramesInPacket != 0
                         ? packet.mVariableFramesInPacket
                         : encoder_->streamFormat().mFramesPerPacket);
    entry.descriptions.push_back(packet);
    nextByte_ += bytes.size();
    ++nextPacket_;
    return true;
}

void InputQueue::takeBytes(std::span<const std::byte> bytes, std::uint64_t frameCount) {
    AudioQueueBuffer& buffer = *enqueued().front().buffer;
    if (buffer.mAudioDataByteSize == 0) {
        enqueued().front().startTime.mSampleTime = static_cast<double>(filledFrames_);
    }
    std::memcpy(static_cast<std::byte*>(buffer.mAudioData) + buffer.mAudioDataByteSize,
                bytes.data(), bytes.size());
    buffer.mAudioDataByteSize += static_cast<std::uint32_t>(bytes.size());
    filledFrames_ += frameCount;
    framesInFirst_ += frameCount;
}

void InputQueue::giveBackFilled() {
    framesInFirst_ = 0;
    giveBackFirst();
}

/// Room for whole packets where these are of constant size.
std::size_t InputQueue::roomInFirst() const {
    const AudioQueueBuffer& buffer = *enqueued().front().buffer;
    const std::size_t room = buffer.mAudioDataBytesCapacity - buffer.mAudioDataByteSize;
    return format_.mBytesPerPacket > 0 ? room - room % format_.mBytesPerPacket : room;
}

/// Bytes of the ring that the first buffer waits for.
std::size_t InputQueue::bytesWorthWaking() const {
    if (enqueued().empty()) {
        return std::numeric_limits<std::size_t>::max();
    }
    const auto halfSecond = static_cast<std::size_t>(kPacketBufferInSeconds * pcm_.mSampleRate);
    const std::size_t frameCount =
        format_.mBytesPerPacket > 0
            ? std::min(roomInFirst() / format_.mBytesPerPacket, halfSecond)
            : halfSecond - std::min<std::size_t>(framesInFirst_, halfSecond - 1);
    return frameCount * pcm_.mBytesPerFrame;
}

void InputQueue::forgetPackets() {
    packets_.bytes.clear();
    packets_.descriptions.clear();
    nextByte_ = 0;
    nextPacket_ = 0;
}

void InputQueue::callBack(AudioQueueRef handle, const Entry& entry) {
    callback_(userData_, handle, entry.buffer, &entry.startTime,
              static_cast<std::uint32_t>(entry.descriptions.size()),
              entry.descriptions.empty() ? nullptr : entry.descriptions.data());
}

}  // namespace zav::detail
