#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/queues/PeakMeter.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"
#include "ZAVAudioStreaming/support/ThreadRole.hpp"

namespace zav::detail {

/// A list that carries the audio of an output queue to the device. The queue appends pieces of PCM.
/// The device pulls them as one stream of bytes. The list takes no lock.
///
/// Roles: the *appender* is the thread that holds the lock of the queue's audio. The *device* pulls
/// and reports the frames that it has played. One thread at a time plays each role. Debug builds
/// assert this. The appender links a piece before it publishes the piece's bytes. The device
/// therefore never reads past the last piece. The appender frees a piece only when part of the next
/// piece has been played. By then the device has left the first piece.
class PlaybackFeed final : public PlaybackClient {
 public:
    /// The device calls `wake` when it has reached the mark, and when the device is gone.
    PlaybackFeed(const AudioStreamBasicDescription& pcm, std::function<void()> wake);
    ~PlaybackFeed();

    PlaybackFeed(const PlaybackFeed&) = delete;
    PlaybackFeed& operator=(const PlaybackFeed&) = delete;

    /// Appender. Appends bytes and returns the number of whole frames appended in this run. The
    /// device reads the bytes in place. They must stay valid until that many frames have been
    /// played. A frame may begin in one piece and end in the next. The feed copies its beginning.
    std::uint64_t append(std::span<const std::byte> pcm);
    /// Appender. Does the same with bytes that the feed then owns.
    std::uint64_t append(std::vector<std::byte> pcm);

    /// Appender. Returns the number of whole frames appended in this run.
    std::uint64_t appendedFrames() const;
    /// Appender.
    bool isPlayedOut() const { return playedFrames_ >= appendedFrames(); }

    /// Appender. Frees the pieces that have been played.
    void dropPlayed();

    /// Begins a new, empty run. No device stream may be open.
    void clear();
    /// Begins the run again with everything that was appended. None of it may have been dropped
    /// yet. No device stream may be open.
    void rewind();
    /// Sets the counts to zero. Until this call, the counts of the last run stay readable. No
    /// device stream may be open.
    void resetCounts();

    std::uint64_t playedFrames() const { return playedFrames_; }
    bool isDeviceGone() const { return isDeviceGone_; }

    /// Number of times that the device ran dry in this run. Running dry at the announced end does
    /// not count.
    std::uint32_t interruptionCount() const { return interruptionCount_; }
    AudioQueueLevel takeLevel() { return meter_.take(); }
    /// Appender. Announces whether the run ends with the audio appended so far.
    void setEnding(bool isEnding) { isEnding_ = isEnding; }

    // The device.
    std::size_t pull(std::span<std::byte> room) noexcept override;
    std::uint64_t mark() const noexcept override;
    void played(std::uint64_t frameCount) noexcept override;
    void ranDry(std::uint64_t frameCount) noexcept override;
    void deviceGone() noexcept override;

 private:
    struct Piece {
        std::span<const std::byte> bytes;
        std::vector<std::byte> kept;
        std::uint64_t startByte = 0;  // in the run
        std::uint64_t endFrame = 0;   // whole frames of the run up to this piece's end
        std::atomic<Piece*> next{nullptr};
    };

    void append(std::unique_ptr<Piece> piece);

    const std::uint32_t bytesPerFrame_;
    const std::function<void()> wake_;

    PeakMeter meter_;

    ThreadRole appender_;
    mutable ThreadRole device_;

    // Used by the appender. The device has read the bytes of the first piece, but may still follow
    // its link.
    Piece* first_;
    Piece* last_;
    std::uint64_t appendedBytes_ = 0;

    // Used by the device.
    Piece* pulled_;  // the piece that the device copies from
    std::size_t pulledInPiece_ = 0;
    std::uint64_t pulledBytes_ = 0;
    Piece* marked_;  // the piece whose end is the mark, or the last one if that has been played

    // Used by both.
    std::atomic<std::uint64_t> publishedBytes_{0};
    std::atomic<std::uint64_t> playedFrames_{0};
    std::atomic<std::uint32_t> interruptionCount_{0};
    std::atomic<bool> isEnding_{false};
    std::atomic<bool> isDeviceGone_{false};
};

}  // namespace zav::detail
