#include "ZAVAudioStreaming/queues/OutputSide.hpp"

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

/// Returns true if all packets lie in the `size` bytes of a buffer.
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

OutputSide::OutputSide(const AudioStreamBasicDescription& format, std::function<void()> wake)
    : format_(format),
      wake_(std::move(wake)),
      decoder_(makeDecoder(format)),
      pcm_(decoder_ != nullptr ? decoder_->pcmFormat() : *pcmOfDevice(format)),
      feed_(pcm_, wake_) {}

double OutputSide::currentFrame() {
    const std::uint64_t played = stream_ != nullptr ? playedFrames() : endedAtFrame_;
    return static_cast<double>(played) * format_.mSampleRate / pcm_.mSampleRate;
}

bool OutputSide::lastRunWasPlayedOut() const {
    return stream_ == nullptr && wasPlayedOut_;
}

std::uint64_t OutputSide::playedFrames() {
    // At the end, the device can report all frames as played a little before its clock reaches the
    // end.
    return std::max(stream_->framesPlayed(), feed_.playedFrames());
}

std::uint32_t OutputSide::maximumPacketSize() const {
    return decoder_ != nullptr ? decoder_->maximumPacketSize() : format_.mBytesPerPacket;
}

void OutputSide::setMagicCookie(std::span<const std::byte> cookie) {
    if (decoder_ == nullptr) {
        throw StatusFailure(kAudioQueueErr_InvalidProperty);
    }
    decoder_->setMagicCookie(cookie);
    cookie_.assign(cookie.begin(), cookie.end());
}

OSStatus OutputSide::openDevice() {
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
        const MutexLock lock(mutex);
        feed_.rewind();
        return status;
    }
    const MutexLock lock(mutex);
    stream_ = std::move(stream);
    stream_->audioAdded();  // buffers may have been enqueued while the device was opened
    return noErr;
}

/// Returns the stream for calls that must not hold the mutex. It is valid until `closeDevice`.
PlaybackStream* OutputSide::openedStream() {
    const MutexLock lock(mutex);
    return stream_.get();
}

OSStatus OutputSide::resumeDevice() {
    const OSStatus status = openedStream()->start();
    const MutexLock lock(mutex);
    if (status == noErr && isPlayingOut_) {
        stream_->drain();
    }
    return status;
}

OSStatus OutputSide::pauseDevice() {
    return openedStream()->pause();
}

void OutputSide::closeDevice() {
    std::unique_ptr<PlaybackStream> closed;  // destroyed after the lock is released
    const MutexLock lock(mutex);
    if (stream_ != nullptr) {
        endedAtFrame_ = playedFrames();
        // A device that is lost in the middle of a stream may have played everything enqueued so
        // far.
        wasPlayedOut_ = isPlayedOut() && (isPlayingOut_ || !feed_.isDeviceGone());
    }
    closed = std::move(stream_);
}

OSStatus OutputSide::prepare(AudioQueueBuffer& buffer,
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

void OutputSide::accept(BufferLedger::Entry& entry,
                        std::span<const AudioStreamPacketDescription> descriptions) {
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
    announceMoreAudio();
    if (entry.endFrame <= feed_.playedFrames()) {
        // The buffer adds no whole frame to play, so the device reports nothing about it.
        wake_();
    }
}

void OutputSide::collect() {
    const std::uint64_t played = feed_.playedFrames();
    const std::size_t heldBack = isPlayingOut_ ? 1 : 0;
    while (buffers.enqueuedCount() > heldBack && buffers.first().endFrame <= played) {
        buffers.giveBackFirst();
    }
    feed_.dropPlayed();
    if (isPlayingOut_ && feed_.isPlayedOut()) {
        finishDecoder();  // it may hold audio enqueued since the stop
        announceMoreAudio();
    }
}

void OutputSide::endRun() {
    isPlayingOut_ = false;
    feed_.clear();
    if (decoder_ != nullptr) {
        decoder_->reset();
        isDecoderBegun_ = false;
    }
}

bool OutputSide::beginPlayingOut() {
    finishDecoder();
    if (isPlayedOut()) {
        return true;
    }
    isPlayingOut_ = true;
    feed_.setEnding(true);
    announceMoreAudio();
    return false;
}

void OutputSide::callOffPlayingOut() {
    isPlayingOut_ = false;
    feed_.setEnding(false);
    announceMoreAudio();
}

bool OutputSide::isPlayedOut() const {
    return feed_.isPlayedOut() && !isDecoderBegun_;
}

void OutputSide::finishDecoder() {
    if (std::exchange(isDecoderBegun_, false)) {
        std::vector<std::byte> pcm;
        decoder_->finish(pcm);
        feed_.append(std::move(pcm));
    }
}

void OutputSide::announceMoreAudio() {
    if (stream_ == nullptr) {
        return;
    }
    stream_->audioAdded();
    if (isPlayingOut_) {
        stream_->drain();
    }
}

}  // namespace zav::detail
