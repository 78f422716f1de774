#pragma once

#include <memory>

#include "ZAVAudioStreaming/queues/BufferQueue.hpp"
#include "ZAVAudioStreaming/queues/PlaybackFeed.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"

namespace zav::detail {

/// A queue that plays. PCM that the device takes is played from the buffers themselves; all else is
/// decoded when its buffer is enqueued.
class OutputQueue : public BufferQueue {
 public:
    /// Throws 'fmt?' for a format that cannot be played.
    static std::shared_ptr<OutputQueue> make(AudioQueueRef handle,
                                             const AudioStreamBasicDescription& format,
                                             DispatchQueue& dispatchQueue,
                                             AudioQueueOutputCallbackBlock callback);

    OutputQueue(AudioQueueRef handle, const AudioStreamBasicDescription& format,
                AudioQueueOutputCallbackBlock callback);

    double currentFrame() override;
    std::uint32_t interruptionCount() override { return feed_.interruptionCount(); }
    AudioQueueLevel takeLevel() override { return feed_.takeLevel(); }
    bool lastRunWasPlayedOut() override;
    AudioStreamBasicDescription streamFormat() override { return format_; }
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
    bool beginEnding() override;
    void callOffEnding() override;
    bool isPlayedOut() const override;
    bool isDeviceGone() const override { return feed_.isDeviceGone(); }
    void callBack(AudioQueueRef handle, const Entry& entry) override;

    std::uint64_t playedFrames();
    void finishDecoder();
    void tellDeviceOfMore();

    const AudioStreamBasicDescription format_;
    const AudioQueueOutputCallbackBlock callback_;
    const std::unique_ptr<QueueDecoder> decoder_;  // null where the device takes the stream
    bool isDecoderBegun_ = false;                  // and may hold audio back
    const AudioStreamBasicDescription pcm_;
    std::vector<std::byte> cookie_;
    PlaybackFeed feed_;
    std::unique_ptr<PlaybackStream> stream_;  // of a run; set and taken away under both locks
    std::uint64_t endedAtFrame_ = 0;          // of the last run
    bool wasPlayedOut_ = true;                // at its end, and nothing was enqueued since
};

}  // namespace zav::detail
