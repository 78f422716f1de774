#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "ZAVAudioStreaming/modules/pulse/PulseStream.hpp"
#include "ZAVAudioStreaming/modules/pulse/WideSamples.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// Plays through the sound server. The client is asked for audio when the server wants some.
///
/// The stream's clock tells how many frames have sounded, and a timer is set to the moment when it
/// is to reach the client's mark. Two things are peculiar about the end of what there is to play:
///
/// - The clock may stand still a few frames short of it, or run over it while the server is late.
///   So the last frame counts as played when the server has said that it has taken it, and as much
///   time has gone by as what it took last needs to sound.
/// - PipeWire plays nothing of a last piece that is shorter than the blocks in which it works. It
///   gets silence behind that piece: at once when nothing follows, otherwise when it stood still
///   for a moment. (Its own way to drain a stream loses what comes after.) Silence that was put in
///   is no part of the client's count of frames.
///
/// Threads: as `PlaybackStream`; the rest runs with the connection's lock.
class PulsePlayback final : public PlaybackStream, private PulseStream {
 public:
    explicit PulsePlayback(PlaybackClient& client) : client_(client) {}
    ~PulsePlayback() override;
    PulsePlayback(const PulsePlayback&) = delete;
    PulsePlayback& operator=(const PulsePlayback&) = delete;

    /// Statuses: those of `QueueDevice`. Once.
    OSStatus open(const AudioStreamBasicDescription& format);

    OSStatus start() override;
    OSStatus pause() override;
    void audioAdded() override;
    void drain() override;
    std::uint64_t framesPlayed() override;

 private:
    /// Positions in what was written, in frames: the client's audio and pieces of silence.
    struct Silence {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    void opened() override;
    void heard() noexcept override;
    void lost() noexcept override;

    /// Writes what the server takes and the client has.
    void fill();
    /// Bytes that the client put into `room`.
    std::size_t pull(std::span<std::byte> room);
    /// The client has run out of audio: sees to it that the server plays all that it has.
    void pad();
    void stoodStill();
    void writeSilence();
    /// The server has taken what was written before this position.
    void hasTaken(std::uint64_t position);
    /// The server had nothing to play behind this position.
    void ranDry(std::uint64_t position);

    /// Tells the client if its mark is reached, and sets the timer to the next one.
    void tell();
    void timeIsUp();
    /// Brings `played_` up to date.
    std::uint64_t position();
    /// How many of the client's frames may be said to have been played.
    std::uint64_t limit() const {
        return isAllTaken_ ? pulled_ : std::max<std::uint64_t>(pulled_, 1) - 1;
    }

    std::uint64_t serverPosition() const;
    std::uint64_t clientFrame(std::uint64_t position) const;
    bool endsInSilence() const { return lastSilence_.end == written_; }
    std::uint64_t audioEnd() const { return endsInSilence() ? lastSilence_.begin : written_; }

    PlaybackClient& client_;
    /// Not null when the client's samples are of 8 bits, and those that are written of 16.
    const WideSamples* wideSamples_ = nullptr;
    std::optional<PulseTimer> markTimer_;
    std::optional<PulseTimer> padTimer_;
    bool isPlaying_ = false;
    bool isDraining_ = false;
    bool isEmpty_ = false;  ///< the client had less than it was asked for
    bool isDry_ = true;     ///< the server says that it stands still

    std::uint64_t written_ = 0;
    // Of a piece of silence the server leaves what is no whole block, until something follows: the
    // one before may be needed as well to tell positions by.
    Silence lastSilence_;
    Silence silenceBefore_;
    std::uint64_t olderSilence_ = 0;  ///< frames in all pieces before those
    std::uint64_t pulled_ = 0;        ///< the client's frames, as are those below
    std::uint64_t played_ = 0;
    std::uint64_t drySaidAt_ = 0;    ///< where it last ran dry
    std::uint64_t drySaidWith_ = 0;  ///< frames pulled by then
    std::uint64_t askedAt_ = 0;      ///< the end at which the server was asked for the time
    /// The server has nothing left of the client's; what it took last sounds until `silentAt_`.
    bool isAllTaken_ = true;
    pa_usec_t silentAt_ = 0;
    /// What the timer was set for, and the position then.
    std::uint64_t timedMark_ = PlaybackClient::kNoMark;
    std::uint64_t timedFrom_ = 0;
};

}  // namespace zav::detail
