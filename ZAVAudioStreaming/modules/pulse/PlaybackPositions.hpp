#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace zav::detail {

/// The arithmetic of a stream that plays through a sound server. All positions are in frames, all
/// times in microseconds of one steady clock.
///
/// Two counts differ: the server counts everything that was written to it, which is the client's
/// audio and pieces of silence behind it. The client counts its own audio only.
///
/// The last frame of the client's audio counts as played when the server has taken all of it, and
/// the audio taken last has had time to sound. The server's clock alone does not prove that: it may
/// stop a few frames short of the end, or run past it while the server is late.
///
/// Threads: one at a time. It calls nothing.
class PlaybackPositions {
 public:
    /// `rate` is in Hz.
    explicit PlaybackPositions(std::uint32_t rate) : rate_(rate) {}

    std::uint64_t duration(std::uint64_t frameCount) const;
    /// Rounded to the nearest frame.
    std::uint64_t frameCount(std::uint64_t duration) const;

    /// The client's audio has been written.
    void addAudio(std::uint64_t frameCount);
    /// Begins or extends the piece of silence behind the audio. Returns false if no silence should
    /// be written now: the piece is as long as `enough`, or an older piece still sounds at
    /// `serverPosition` and is needed to compute positions.
    bool beginSilence(std::uint64_t serverPosition, std::uint64_t enough);
    /// Silence has been written to the piece that was begun.
    void addSilence(std::uint64_t frameCount);
    bool endsInSilence() const { return lastSilence_.end == written_; }

    /// The stream plays on at `now` after a start or a pause.
    void resume(std::uint64_t now);
    /// The server has taken everything that was written before `serverPosition`.
    void noteTaken(std::uint64_t serverPosition, std::uint64_t now);
    /// The server had nothing to play behind `serverPosition`. Returns the client's position if
    /// that is news to the client.
    std::optional<std::uint64_t> noteDry(std::uint64_t serverPosition);
    /// The server stood still, and silence follows: running dry behind it is no news.
    void expectDryBehindSilence();

    /// Brings `played` up to date from the server's clock. Returns it.
    std::uint64_t update(std::uint64_t serverPosition, std::uint64_t now);

    /// Frames written in all.
    std::uint64_t written() const { return written_; }
    /// The client's frames that were written.
    std::uint64_t pulled() const { return pulled_; }
    /// The client's frames that have been played, as of the last `update`. Never decreases.
    std::uint64_t played() const { return played_; }
    /// Whether the server has taken all of the client's audio.
    bool isAllTaken() const { return isAllTaken_; }
    /// The client's frames that may count as played by the server's clock alone: the last one only
    /// when the server has taken it.
    std::uint64_t limit() const {
        return isAllTaken_ ? pulled_ : std::max<std::uint64_t>(pulled_, 1) - 1;
    }

    /// The client's frames before a position of the server.
    std::uint64_t clientFrame(std::uint64_t serverPosition) const;

 private:
    /// A piece of silence, from and to a position of the server.
    struct Silence {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    std::uint64_t audioEnd() const { return endsInSilence() ? lastSilence_.begin : written_; }

    const std::uint32_t rate_;
    std::uint64_t written_ = 0;
    std::uint64_t pulled_ = 0;
    std::uint64_t played_ = 0;

    // The server does not play the end of a piece that fills no whole block until more follows. So
    // the piece before the last one may still sound, and is needed to compute positions.
    Silence lastSilence_;
    Silence silenceBefore_;
    std::uint64_t olderSilence_ = 0;  ///< frames of all pieces before those two

    bool isAllTaken_ = true;
    std::uint64_t silentAt_ = 0;  ///< when all that was taken has sounded

    std::uint64_t dryAt_ = 0;    ///< the client's position where it last ran dry
    std::uint64_t dryWith_ = 0;  ///< `pulled_` at that time
};

}  // namespace zav::detail
