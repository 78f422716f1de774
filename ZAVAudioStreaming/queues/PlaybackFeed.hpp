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

/// The list through which the audio of an output queue goes to the device. The queue appends pieces
/// of PCM, and the device pulls them as one stream of bytes. It takes no lock.
///
/// Roles: the *appender* is whoever holds the lock of the queue's audio. The *device* pulls and
/// reports what it has played. Each role is played by one thread at a time; debug builds assert it.
/// The appender links a piece before it publishes the piece's bytes, so the device never reads past
/// the last piece. It frees a piece only when part of the next one has been played: by then the
/// device has left it.
class PlaybackFeed final : public PlaybackClient {
 public:
    /// The device calls `wake` when it has reached the mark, and when it is gone.
    PlaybackFeed(const AudioStreamBasicDescription& pcm, std::function<void()> wake);
    ~PlaybackFeed();

    PlaybackFeed(const PlaybackFeed&) = delete;
    PlaybackFeed& operator=(const PlaybackFeed&) = delete;

    /// Appender. Appends bytes, and returns the whole frames appended in this run. The device reads
    /// the bytes in place: they stay valid until that many frames have been played. A frame may
    /// begin in one piece and end in the next; the beginning is copied.
    std::uint64_t append(std::span<const std::byte> pcm);
    /// Appender. The same with bytes that the feed owns.
    std::uint64_t append(std::vector<std::byte> pcm);

    /// Appender. Whole frames appended in this run.
    std::uint64_t appendedFrames() const;
    /// Appender.
    bool isPlayedOut() const { return playedFrames_ >= appendedFrames(); }

    /// Appender. Frees what has been played.
    void dropPlayed();

    /// Begins a new run with nothing appended. No stream of a device is open.
    void clear();
    /// Begins the run again with all that was appended; nothing of it has been dropped yet. No
    /// stream of a device is open.
    void rewind();
    /// Sets the counts to zero. They stay readable from one run to the start of the next. No stream
    /// of a device is open.
    void resetCounts();

    std::uint64_t playedFrames() const { return playedFrames_; }
    bool isDeviceGone() const { return isDeviceGone_; }

    /// How often the device ran dry in this run. Running dry at the announced end does not count.
    std::uint32_t interruptionCount() const { return interruptionCount_; }
    AudioQueueLevel takeLevel() { return meter_.take(); }
    /// Appender. Announces that the end of what is appended is the end of the run.
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
        std::uint64_t endFrame = 0;   // whole frames in the run up to its end
        std::atomic<Piece*> next{nullptr};
    };

    void append(std::unique_ptr<Piece> piece);

    const std::uint32_t bytesPerFrame_;
    const std::function<void()> wake_;

    PeakMeter meter_;

    ThreadRole appender_;
    mutable ThreadRole device_;

    // The appender's. The device may still follow the link of the first piece, but has read its
    // bytes.
    Piece* first_;
    Piece* last_;
    std::uint64_t appendedBytes_ = 0;

    // The device's.
    Piece* pulled_;  // the piece that it copies from
    std::size_t pulledInPiece_ = 0;
    std::uint64_t pulledBytes_ = 0;
    Piece* marked_;  // the piece whose end is the mark, or the last one if that has been played

    // Shared by both.
    std::atomic<std::uint64_t> publishedBytes_{0};
    std::atomic<std::uint64_t> playedFrames_{0};
    std::atomic<std::uint32_t> interruptionCount_{0};
    std::atomic<bool> isEnding_{false};
    std::atomic<bool> isDeviceGone_{false};
};

}  // namespace zav::detail
