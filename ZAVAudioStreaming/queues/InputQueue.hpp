#pragma once

#include <memory>

#include "ZAVAudioStreaming/queues/BufferQueue.hpp"
#include "ZAVAudioStreaming/queues/CaptureRing.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// A queue that captures. The device fills a ring; the queue's thread fills the buffers from it,
/// and encodes on the way where the stream is not what the device gives. A buffer of PCM comes back
/// when it is full, one of packets also when half a second is in it.
class InputQueue : public BufferQueue {
 public:
    /// Throws 'fmt?' for a format that cannot be captured.
    static std::shared_ptr<InputQueue> make(AudioQueueRef handle,
                                            const AudioStreamBasicDescription& format,
                                            AudioQueueInputCallback callback, void* userData);

    InputQueue(AudioQueueRef handle, const AudioStreamBasicDescription& format,
               AudioQueueInputCallback callback, void* userData);

    double currentFrame() override;
    std::uint32_t interruptionCount() override { return ring_.interruptionCount(); }
    AudioQueueLevel takeLevel() override { return ring_.takeLevel(); }
    bool lastRunWasPlayedOut() override;
    AudioStreamBasicDescription streamFormat() override;
    std::uint32_t maximumPacketSize() override;
    std::vector<std::byte> magicCookie() override;
    OSStatus setMagicCookie(std::span<const std::byte> cookie) override;

 private:
    OSStatus openDevice() override;
    OSStatus resumeDevice() override;
    OSStatus pauseDevice() override;
    void closeDevice() override;
    OSStatus prepare(AudioQueueBuffer& buffer,
                     std::span<const AudioStreamPacketDescription> descriptions) override;
    void accept(Entry& entry, std::span<const AudioStreamPacketDescription> descriptions) override;
    void collect() override;
    void endRun() override;
    bool beginEnding() override { return true; }
    void callOffEnding() override {}
    bool isPlayedOut() const override { return true; }
    bool isDeviceGone() const override { return ring_.isDeviceGone(); }
    void callBack(AudioQueueRef handle, const Entry& entry) override;

    OSStatus openStream();
    void finishStream();
    void fillBuffers();
    void fillFromRing();
    void encodeRing();
    void fillFromPackets();
    bool takeFrames();
    bool takePacket();
    void takeBytes(std::span<const std::byte> bytes, std::uint64_t frameCount);
    void giveBackFilled();
    std::uint32_t largestPacket() const;
    std::size_t roomInFirst() const;
    std::size_t bytesWorthWaking() const;
    void forgetPackets();

    const AudioStreamBasicDescription format_;
    const AudioQueueInputCallback callback_;
    void* const userData_;
    const std::unique_ptr<QueueEncoder> encoder_;  // null where the device gives the stream
    const AudioStreamBasicDescription pcm_;
    CaptureRing ring_;
    std::unique_ptr<CaptureStream> stream_;  // set and taken away under both locks
    bool isInRun_ = false;

    // Encoded and not yet in a buffer: from `nextByte_` and `nextPacket_` on.
    EncodedPackets packets_;
    std::size_t nextByte_ = 0;
    std::size_t nextPacket_ = 0;
    std::uint64_t filledFrames_ = 0;   // of the run, in all buffers
    std::uint64_t framesInFirst_ = 0;  // in the first of those enqueued
};

}  // namespace zav::detail
