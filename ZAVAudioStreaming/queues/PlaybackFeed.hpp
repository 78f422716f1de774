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

namespace zav::detail {

/// The way of an output queue's audio to the device: pieces of PCM that the queue appends and the
/// device thread pulls as one stream of bytes, without locks.
///
/// Roles: one *appender* at a time (whoever holds the queue's lock), one *device thread* at a time.
/// The appender links a piece before it publishes the piece's bytes, so the device thread never
/// looks beyond what is there. It frees a piece only when something of the one after it has been
/// played: by then the device thread has left it.
class PlaybackFeed final : public PlaybackClient {
 public:
    /// `wake` is called on the device thread when there is something to hear of.
    PlaybackFeed(const AudioStreamBasicDescription& pcm, std::function<void()> wake);
    ~PlaybackFeed();

    PlaybackFeed(const PlaybackFeed&) = delete;
    PlaybackFeed& operator=(const PlaybackFeed&) = delete;

    /// Appender. Appends bytes that the device thread reads where they are, until as many frames
    /// have been played as are returned: the whole frames appended in this run. Frames may begin in
    /// one piece and end in the next: a begun one is copied.
    std::uint64_t append(std::span<const std::byte> pcm);
    /// The same with bytes that the feed keeps.
    std::uint64_t append(std::vector<std::byte> pcm);

    /// Appender. Whole frames appended in this run.
    std::uint64_t appendedFrames() const;
    bool isPlayedOut() const { return playedFrames_ >= appendedFrames(); }

    /// Appender. Frees what has been played.
    void dropPlayed();

    /// While no device is there: begins a new run with nothing appended.
    void clear();
    /// While no device is there: begins the run again with what was appended, if nothing of it has
    /// been dropped yet.
    void rewind();
    /// While no device is there: begins to count anew. What was counted in a run can be asked for
    /// until the next one.
    void resetCounts();

    std::uint64_t playedFrames() const { return playedFrames_; }
    bool isDeviceGone() const { return isDeviceGone_; }

    /// How often the device ran dry in this run. It always does at the end, which does not count.
    std::uint32_t interruptionCount() const { return interruptionCount_; }
    AudioQueueLevel takeLevel() { return meter_.take(); }
    void setEnding(bool isEnding) { isEnding_ = isEnding; }

    // The device's side.
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

    // The appender's. The first piece is one that the device may still look at, but reads no more.
    Piece* first_;
    Piece* last_;
    std::uint64_t appendedBytes_ = 0;

    // The device thread's.
    Piece* pulled_;  // from where it copies next
    std::size_t pulledInPiece_ = 0;
    std::uint64_t pulledBytes_ = 0;
    Piece* marked_;  // whose end is waited for; or whose end was reached, if none follows

    // What the two tell each other.
    std::atomic<std::uint64_t> publishedBytes_{0};
    std::atomic<std::uint64_t> playedFrames_{0};
    std::atomic<std::uint32_t> interruptionCount_{0};
    std::atomic<bool> isEnding_{false};
    std::atomic<bool> isDeviceGone_{false};
};

}  // namespace zav::detail
