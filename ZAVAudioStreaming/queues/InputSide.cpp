#include "ZAVAudioStreaming/queues/InputSide.hpp"

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

/// Time that an application may be late with its buffers before the device holds audio back.
constexpr double kRingInSeconds = 1;

/// A buffer of packets is given back when it contains this much. A full buffer could hold a minute.
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

InputSide::InputSide(const AudioStreamBasicDescription& format, std::function<void()> wake)
    : format_(format),
      wake_(std::move(wake)),
      encoder_(makeEncoder(format)),
      pcm_(encoder_ != nullptr ? encoder_->pcmFormat() : *pcmOfDevice(format)),
      ring_(pcm_, static_cast<std::size_t>(pcm_.mSampleRate * kRingInSeconds), wake_) {}

double InputSide::currentFrame() {
    return static_cast<double>(ring_.capturedFrames()) * format_.mSampleRate / pcm_.mSampleRate;
}

AudioStreamBasicDescription InputSide::streamFormat() const {
    return encoder_ != nullptr ? encoder_->streamFormat() : format_;
}

std::uint32_t InputSide::maximumPacketSize() const {
    return encoder_ != nullptr ? encoder_->maximumPacketSize() : format_.mBytesPerPacket;
}

std::vector<std::byte> InputSide::magicCookie() const {
    if (encoder_ == nullptr) {
        return {};
    }
    const auto cookie = encoder_->magicCookie();
    return {cookie.begin(), cookie.end()};
}

OSStatus InputSide::openDevice() {
    {
        const MutexLock lock(mutex);
        ring_.clear();
        filledFrames_ = 0;
        isInRun_ = true;
    }
    return openStream();
}

OSStatus InputSide::resumeDevice() {
    return openStream();
}

OSStatus InputSide::openStream() {
    QueueDevice* const device = queueDevice();
    if (device == nullptr) {
        return kAudioQueueErr_InvalidDevice;
    }
    std::unique_ptr<CaptureStream> stream;
    if (const OSStatus status = device->openCapture(pcm_, ring_, stream); status != noErr) {
        return status;
    }
    const MutexLock lock(mutex);
    stream_.swap(stream);  // closes a stream that a pause finished, after the lock
    // The earlier notification of room may have gone to the finished stream, so repeat it.
    stream_->roomAdded();
    return noErr;
}

// Finish the stream. If it kept capturing during the pause, it would deliver audio of the pause, or
// repeat the audio just before it. Keep the finished stream, because it notices when the device
// goes away.
OSStatus InputSide::pauseDevice() {
    finishStream();
    return noErr;
}

void InputSide::finishStream() {
    CaptureStream* stream = nullptr;
    {
        const MutexLock lock(mutex);
        collect();  // makes room for audio that the device holds back
        stream = stream_.get();
    }
    stream->finish();
}

void InputSide::closeDevice() {
    std::unique_ptr<CaptureStream> closed;  // destroyed after the lock is released
    MutexLock lock(mutex);
    if (stream_ != nullptr) {
        lock.unlock();
        finishStream();
        lock.lock();
    }
    closed = std::move(stream_);
}

OSStatus InputSide::prepare(AudioQueueBuffer& buffer,
                            std::span<const AudioStreamPacketDescription> descriptions) {
    if (!descriptions.empty()) {
        return kAudioQueueErr_InvalidParameter;
    }
    if (buffer.mAudioDataBytesCapacity < maximumPacketSize()) {
        return kAudioQueueErr_InvalidBuffer;
    }
    buffer.mAudioDataByteSize = 0;
    return noErr;
}

void InputSide::accept(BufferLedger::Entry& /*entry*/,
                       std::span<const AudioStreamPacketDescription> /*descriptions*/) {
    wake_();
}

void InputSide::collect() {
    do {
        fillBuffers();
        if (stream_ != nullptr && ring_.takeHeldBack()) {
            stream_->roomAdded();
        }
    } while (!ring_.wakeAt(bytesWorthWaking()));
}

void InputSide::endRun() {
    if (!std::exchange(isInRun_, false)) {
        return;
    }
    fillBuffers();
    if (encoder_ != nullptr) {
        encoder_->finish(packets_);
        fillFromPackets();
    }
    if (buffers.hasEnqueued() && buffers.first().buffer->mAudioDataByteSize > 0) {
        giveBackFilled();
    }
    // Drop the audio for which the application had no buffers.
    while (!ring_.peek().empty()) {
        ring_.release(ring_.peek().size());
    }
    forgetPackets();
}

void InputSide::fillBuffers() {
    if (encoder_ != nullptr) {
        encodeRing();
    } else {
        fillFromRing();
    }
}

void InputSide::fillFromRing() {
    while (buffers.hasEnqueued()) {
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

void InputSide::encodeRing() {
    fillFromPackets();
    while (buffers.hasEnqueued() && !ring_.peek().empty()) {
        const auto captured = ring_.peek();
        encoder_->encode(captured, packets_);
        ring_.release(captured.size());
        fillFromPackets();
    }
}

void InputSide::fillFromPackets() {
    while (buffers.hasEnqueued() && nextByte_ < packets_.bytes.size()) {
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

/// Takes packets of constant size. Returns false if the first buffer is full.
bool InputSide::takeFrames() {
    const std::uint32_t packetSize = format_.mBytesPerPacket;
    const std::size_t size = std::min(roomInFirst(), packets_.bytes.size() - nextByte_);
    takeBytes(std::span(packets_.bytes).subspan(nextByte_, size), size / packetSize);
    nextByte_ += size;
    return roomInFirst() > 0;
}

/// Takes one packet of variable size. Returns false if the first buffer has no room for the packet.
bool InputSide::takePacket() {
    AudioStreamPacketDescription packet = packets_.descriptions[nextPacket_];
    if (packet.mDataByteSize > roomInFirst()) {
        return false;
    }
    BufferLedger::Entry& entry = buffers.first();
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

void InputSide::takeBytes(std::span<const std::byte> bytes, std::uint64_t frameCount) {
    AudioQueueBuffer& buffer = *buffers.first().buffer;
    if (buffer.mAudioDataByteSize == 0) {
        buffers.first().startTime.mSampleTime = static_cast<double>(filledFrames_);
    }
    std::memcpy(static_cast<std::byte*>(buffer.mAudioData) + buffer.mAudioDataByteSize,
                bytes.data(), bytes.size());
    buffer.mAudioDataByteSize += static_cast<std::uint32_t>(bytes.size());
    filledFrames_ += frameCount;
    framesInFirst_ += frameCount;
}

void InputSide::giveBackFilled() {
    framesInFirst_ = 0;
    buffers.giveBackFirst();
}

/// Returns bytes. They are whole packets if packets have a constant size.
std::size_t InputSide::roomInFirst() const {
    const AudioQueueBuffer& buffer = *buffers.first().buffer;
    const std::size_t room = buffer.mAudioDataBytesCapacity - buffer.mAudioDataByteSize;
    return format_.mBytesPerPacket > 0 ? room - room % format_.mBytesPerPacket : room;
}

/// Returns the bytes that the ring must contain so that `collect` can give the first buffer back.
std::size_t InputSide::bytesWorthWaking() const {
    if (!buffers.hasEnqueued()) {
        return std::numeric_limits<std::size_t>::max();
    }
    const auto halfSecond = static_cast<std::size_t>(kPacketBufferInSeconds * pcm_.mSampleRate);
    const std::size_t frameCount =
        format_.mBytesPerPacket > 0
            ? std::min(roomInFirst() / format_.mBytesPerPacket, halfSecond)
            : halfSecond - std::min<std::size_t>(framesInFirst_, halfSecond - 1);
    return frameCount * pcm_.mBytesPerFrame;
}

void InputSide::forgetPackets() {
    packets_.bytes.clear();
    packets_.descriptions.clear();
    nextByte_ = 0;
    nextPacket_ = 0;
}

}  // namespace zav::detail
