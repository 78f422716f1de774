#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/CaptureRing.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"
#include "ZAVAudioStreaming/queues/QueueSide.hpp"

namespace zav::detail {

/// The audio of a queue that captures. The device fills a ring. `collect` fills the buffers from
/// the ring. It encodes the audio if the device cannot deliver the stream's format. A buffer of PCM
/// is given back when it is full. A buffer of packets is given back when it is full or contains
/// half a second.
class InputSide final : public QueueSide {
 public:
    /// Throws StatusFailure with 'fmt?' for a format that cannot be captured.
    InputSide(const AudioStreamBasicDescription& format, std::function<void()> wake);

    OSStatus openDevice() override ZAV_EXCLUDES(mutex);
    OSStatus resumeDevice() override ZAV_EXCLUDES(mutex);
    OSStatus pauseDevice() override ZAV_EXCLUDES(mutex);
    void closeDevice() override ZAV_EXCLUDES(mutex);
    bool isDeviceGone() const override { return ring_.isDeviceGone(); }

    OSStatus prepare(AudioQueueBuffer& buffer,
                     std::span<const AudioStreamPacketDescription> descriptions) override
        ZAV_REQUIRES(mutex);
    void accept(BufferLedger::Entry& entry,
                std::span<const AudioStreamPacketDescription> descriptions) override
        ZAV_REQUIRES(mutex);
    void collect() override ZAV_REQUIRES(mutex);
    void endRun() override ZAV_REQUIRES(mutex);

    double currentFrame() override ZAV_REQUIRES(mutex);
    AudioStreamBasicDescription streamFormat() const override ZAV_REQUIRES(mutex);
    std::uint32_t maximumPacketSize() const override ZAV_REQUIRES(mutex);
    std::vector<std::byte> magicCookie() const override ZAV_REQUIRES(mutex);
    std::uint32_t interruptionCount() const override { return ring_.interruptionCount(); }
    AudioQueueLevel takeLevel() override { return ring_.takeLevel(); }

 private:
    OSStatus openStream() ZAV_EXCLUDES(mutex);
    void finishStream() ZAV_EXCLUDES(mutex);
    void fillBuffers() ZAV_REQUIRES(mutex);
    void fillFromRing() ZAV_REQUIRES(mutex);
    void encodeRing() ZAV_REQUIRES(mutex);
    void fillFromPackets() ZAV_REQUIRES(mutex);
    bool takeFrames() ZAV_REQUIRES(mutex);
    bool takePacket() ZAV_REQUIRES(mutex);
    void takeBytes(std::span<const std::byte> bytes, std::uint64_t frameCount) ZAV_REQUIRES(mutex);
    void giveBackFilled() ZAV_REQUIRES(mutex);
    std::size_t roomInFirst() const ZAV_REQUIRES(mutex);
    std::size_t bytesWorthWaking() const ZAV_REQUIRES(mutex);
    void forgetPackets() ZAV_REQUIRES(mutex);

    const AudioStreamBasicDescription format_;
    const std::function<void()> wake_;
    /// Null if the device delivers the stream itself.
    const std::unique_ptr<QueueEncoder> encoder_ ZAV_PT_GUARDED_BY(mutex);
    const AudioStreamBasicDescription pcm_;  ///< the format that the device delivers
    CaptureRing ring_;                       // the holder of `mutex` is the taker
    /// The stream of one run. Only the device functions set it.
    std::unique_ptr<CaptureStream> stream_ ZAV_GUARDED_BY(mutex);
    bool isInRun_ ZAV_GUARDED_BY(mutex) = false;

    /// Encoded packets. Packets before `nextByte_` and `nextPacket_` are in buffers already.
    EncodedPackets packets_ ZAV_GUARDED_BY(mutex);
    std::size_t nextByte_ ZAV_GUARDED_BY(mutex) = 0;
    std::size_t nextPacket_ ZAV_GUARDED_BY(mutex) = 0;
    std::uint64_t filledFrames_ ZAV_GUARDED_BY(mutex) = 0;   ///< in all buffers of the run
    std::uint64_t framesInFirst_ ZAV_GUARDED_BY(mutex) = 0;  ///< in the first enqueued buffer
};

}  // namespace zav::detail
