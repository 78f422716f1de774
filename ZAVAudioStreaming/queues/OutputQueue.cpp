#include "ZAVAudioStreaming/queues/OutputQueue.hpp"

#include <algorithm>
#include <utility>

#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "ZAVAudioStreaming/queues/PcmConversion.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

std::unique_ptr<QueueDecoder> makeDecoder(const AudioStreamBasicDescription& format) {
    if (pcmOfDevice(format)) {
        return makePcmDecoder(format);
    }
    const auto* const codecs =
        format.mFormatID == kAudioFormatLinearPCM ? nullptr : moduleTable<CompressedCodecs>();
    if (codecs == nullptr) {
        throw StatusFailure(kAudioFormatUnsupportedDataFormatError);
    }
    return codecs->makeDecoder(format);
}

/// Descriptions of bytes that are there.
bool liesIn(std::uint32_t size, std::span<const AudioStreamPacketDescription> descriptions) {
    for (const AudioStreamPacketDescription& packet : descriptions) {
        if (packet.mStartOffset < 0 || packet.mStartOffset > size ||
            packet.mDataByteSize > size - packet.mStartOffset) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::shared_ptr<OutputQueue> OutputQueue::make(AudioQueueRef handle,
                                               const AudioStreamBasicDescription& format,
                                               DispatchQueue& dispatchQueue,
                                               AudioQueueOutputCallbackBlock callback) {
    auto queue = std::make_shared<OutputQueue>(handle, format, std::move(callback));
    queue->setRunner(makeDispatchRunner(dispatchQueue, deliveryTo(queue)));
    return queue;
}

OutputQueue::OutputQueue(AudioQueueRef handle, const AudioStreamBasicDescription& format,
                         AudioQueueOutputCallbackBlock callback)
    : BufferQueue(handle),
      format_(format),
      callback_(std::move(callback)),
      decoder_(makeDecoder(format)),
      pcm_(decoder_ != nullptr ? decoder_->pcmFormat() : *pcmOfDevice(format)),
      feed_(pcm_, [this] { wake(); }) {}

double OutputQueue::currentFrame() {
    const std::lock_guard lock(state());
    const std::uint64_t played = stream_ != nullptr ? playedFrames() : endedAtFrame_;
    return static_cast<double>(played) * format_.mSampleRate / pcm_.mSampleRate;
}

bool OutputQueue::lastRunWasPlayedOut() {
    const std::lock_guard lock(state());
    return stream_ == nullptr && wasPlayedOut_;
}

std::uint64_t OutputQueue::playedFrames() {
    // At an end the device can say that all is played a little before its clock does.
    return std::max(stream_->framesPlayed(), feed_.playedFrames());
}

std::uint32_t OutputQueue::maximumPacketSize() {
    const std::lock_guard lock(state());
    return decoder_ != nullptr ? decoder_->maximumPacketSize() : format_.mBytesPerPacket;
}

std::vector<std::byte> OutputQueue::magicCookie() {
    const std::lock_guard lock(state());
    return cookie_;
}

OSStatus OutputQueue::setMagicCookie(std::span<const std::byte> cookie) {
    const std::lock_guard lock(state());
    if (decoder_ == nullptr) {
        return kAudioQueueErr_InvalidProperty;
    }
    decoder_->setMagicCookie(cookie);
    cookie_.assign(cookie.begin(), cookie.end());
    return noErr;
}

OSStatus OutputQueue::openDevice() {
    QueueDevice* const device = queueDevice();
    if (device == nullptr) {
        return kAudioQueueErr_InvalidDevice;
    }
    feed_.resetCounts();
    std::unique_ptr<PlaybackStream> stream;
    OSStatus status = device->openPlayback(pcm_, feed_, stream);
    if (status == noErr) {
        status = stream->start();
    }
    if (status != noErr) {
        stream.reset();
        const std::lock_guard lock(state());
        feed_.rewind();
        return status;
    }
    const std::lock_guard lock(state());
    stream_ = std::move(stream);
    // What was enqueued while the device was being opened, it has not been told of.
    stream_->audioAdded();
    return noErr;
}

OSStatus OutputQueue::resumeDevice() {
    const OSStatus status = stream_->start();
    const std::lock_guard lock(state());
    if (status == noErr && isStopping()) {
        stream_->drain();
    }
    return status;
}

OSStatus OutputQueue::pauseDevice() {
    return stream_->pause();
}

void OutputQueue::closeDevice() {
    std::unique_ptr<PlaybackStream> stream;
    {
        const std::lock_guard lock(state());
        if (stream_ != nullptr) {
            endedAtFrame_ = playedFrames();
            // A device that goes in the middle of a stream may have played all that was there.
            wasPlayedOut_ = isPlayedOut() && (isStopping() || !feed_.isDeviceGone());
        }
        stream = std::move(stream_);
    }
}

OSStatus OutputQueue::prepare(AudioQueueBuffer& buffer,
                              std::span<const AudioStreamPacketDescription> descriptions) {
    if (buffer.mAudioDataByteSize == 0) {
        return kAudioQueueErr_BufferEmpty;
    }
    if (!liesIn(buffer.mAudioDataByteSize, descriptions)) {
        return kAudioQueueErr_InvalidParameter;
    }
    wasPlayedOut_ = false;
    return noErr;
}

void OutputQueue::accept(Entry& entry, std::span<const AudioStreamPacketDescription> descriptions) {
    const std::span bytes(static_cast<const std::byte*>(entry.buffer->mAudioData),
                          entry.buffer->mAudioDataByteSize);
    if (decoder_ == nullptr) {
        entry.endFrame = feed_.append(bytes);
    } else {
        std::vector<std::byte> pcm;
        isDecoderBegun_ = true;
        decoder_->decode(bytes, descriptions, pcm);
        entry.endFrame = feed_.append(std::move(pcm));
    }
    tellDeviceOfMore();
    if (entry.endFrame <= feed_.playedFrames()) {
        // Nothing of it can be played: the device will not tell of it.
        wake();
    }
}

void OutputQueue::collect() {
    const std::uint64_t played = feed_.playedFrames();
    const std::size_t heldBack = isStopping() ? 1 : 0;
    while (enqueued().size() > heldBack && enqueued().front().endFrame <= played) {
        giveBackFirst();
    }
    feed_.dropPlayed();
    if (isStopping() && feed_.isPlayedOut()) {
        finishDecoder();  // of what was enqueued since the stop
        tellDeviceOfMore();
    }
}

void OutputQueue::endRun() {
    feed_.clear();
    if (decoder_ != nullptr) {
        decoder_->reset();
        isDecoderBegun_ = false;
    }
}

bool OutputQueue::beginEnding() {
    finishDecoder();
    if (isPlayedOut()) {
        return true;
    }
    feed_.setEnding(true);
    stream_->audioAdded();
    stream_->drain();
    return false;
}

void OutputQueue::finishDecoder() {
    if (std::exchange(isDecoderBegun_, false)) {
        std::vector<std::byte> pcm;
        decoder_->finish(pcm);
        feed_.append(std::move(pcm));
    }
}

void OutputQueue::tellDeviceOfMore() {
    if (stream_ == nullptr) {
        return;
    }
    stream_->audioAdded();
    if (isStopping()) {
        stream_->drain();
    }
}

void OutputQueue::callOffEnding() {
    feed_.setEnding(false);
    stream_->audioAdded();
}

bool OutputQueue::isPlayedOut() const {
    return feed_.isPlayedOut() && !isDecoderBegun_;
}

void OutputQueue::callBack(AudioQueueRef handle, const Entry& entry) {
    callback_(handle, entry.buffer);
}

}  // namespace zav::detail
