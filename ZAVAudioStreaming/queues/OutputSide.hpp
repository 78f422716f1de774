#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/PlaybackFeed.hpp"
#include "ZAVAudioStreaming/queues/QueueCodec.hpp"
#include "ZAVAudioStreaming/queues/QueueSide.hpp"

namespace zav::detail {

/// The audio of a queue that plays. If the device takes the stream's format, it plays the buffers
/// in place. A buffer of any other stream is decoded when it is enqueued.
class OutputSide final : public QueueSide {
 public:
    /// Throws StatusFailure with 'fmt?' for a format that cannot be played.
    OutputSide(const AudioStreamBasicDescription& format, std::function<void()> wake);

    OSStatus openDevice() override ZAV_EXCLUDES(mutex);
    OSStatus resumeDevice() override ZAV_EXCLUDES(mutex);
    OSStatus pauseDevice() override ZAV_EXCLUDES(mutex);
    void closeDevice() override ZAV_EXCLUDES(mutex);
    bool isDeviceGone() const override { return feed_.isDeviceGone(); }

    OSStatus prepare(AudioQueueBuffer& buffer,
                     std::span<const AudioStreamPacketDescription> descriptions) override
        ZAV_REQUIRES(mutex);
    void accept(BufferLedger::Entry& entry,
                std::span<const AudioStreamPacketDescription> descriptions) override
        ZAV_REQUIRES(mutex);
    void collect() override ZAV_REQUIRES(mutex);
    void endRun() override ZAV_REQUIRES(mutex);

    bool beginPlayingOut() override ZAV_REQUIRES(mutex);
    void callOffPlayingOut() override ZAV_REQUIRES(mutex);
    bool isPlayedOut() const override ZAV_REQUIRES(mutex);

    double currentFrame() override ZAV_REQUIRES(mutex);
    AudioStreamBasicDescription streamFormat() const override ZAV_REQUIRES(mutex) {
        return format_;
    }
    std::uint32_t maximumPacketSize() const override ZAV_REQUIRES(mutex);
    std::vector<std::byte> magicCookie() const override ZAV_REQUIRES(mutex) { return cookie_; }
    std::uint32_t interruptionCount() const override { return feed_.interruptionCount(); }
    AudioQueueLevel takeLevel() override { return feed_.takeLevel(); }
    void setMagicCookie(std::span<const std::byte> cookie) override ZAV_REQUIRES(mutex);
    bool lastRunWasPlayedOut() const override ZAV_REQUIRES(mutex);

 private:
    PlaybackStream* openedStream() ZAV_EXCLUDES(mutex);
    std::uint64_t playedFrames() ZAV_REQUIRES(mutex);
    void finishDecoder() ZAV_REQUIRES(mutex);
    void announceMoreAudio() ZAV_REQUIRES(mutex);

    const AudioStreamBasicDescription format_;
    const std::function<void()> wake_;
    /// Null if the device takes the stream itself.
    const std::unique_ptr<QueueDecoder> decoder_ ZAV_PT_GUARDED_BY(mutex);
    const AudioStreamBasicDescription pcm_;  ///< the format that the device takes
    PlaybackFeed feed_;                      // the holder of `mutex` is the appender
    /// The stream of one run. Only the device functions set it.
    std::unique_ptr<PlaybackStream> stream_ ZAV_GUARDED_BY(mutex);

    std::vector<std::byte> cookie_ ZAV_GUARDED_BY(mutex);
    /// True if the decoder has decoded since its reset. It may then hold audio back.
    bool isDecoderBegun_ ZAV_GUARDED_BY(mutex) = false;
    bool isPlayingOut_ ZAV_GUARDED_BY(mutex) = false;       ///< true while the run is stopping
    std::uint64_t endedAtFrame_ ZAV_GUARDED_BY(mutex) = 0;  ///< final position of the last run
    /// True if the last run played everything and nothing was enqueued since.
    bool wasPlayedOut_ ZAV_GUARDED_BY(mutex) = true;
};

}  // namespace zav::detail
