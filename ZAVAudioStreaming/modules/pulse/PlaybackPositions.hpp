#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace zav::detail {

/// The arithmetic of a stream that plays through a sound server. Positions are in frames. Times are
/// in microseconds of one steady clock.
///
/// There are two counts. The server counts everything that was written to it: the client's audio
/// and pieces of silence behind it. The client counts only its own audio.
///
/// The last frame of the client's audio counts as played under two conditions: the server has taken
/// all the audio, and the audio taken last has had time to sound. The server's clock alone does not
/// prove that. The clock may stop a few frames before the end. It may also run past the end while
/// the server is late.
///
/// Threads: one at a time. This class calls no other object.
class PlaybackPositions {
 public:
    /// `rate` is in Hz.
    explicit PlaybackPositions(std::uint32_t rate) : rate_(rate) {}

    std::uint64_t duration(std::uint64_t frameCount) const;
    /// Rounds to the nearest frame.
    std::uint64_t frameCount(std::uint64_t duration) const;

    /// Notes that the client's audio has been written.
    void addAudio(std::uint64_t frameCount);
    /// Begins or extends the piece of silence behind the audio. Returns false if no silence should
    /// be written now. Either the piece is already as long as `enough`, or an older piece still
    /// sounds at `serverPosition` and is needed to compute positions.
    bool beginSilence(std::uint64_t serverPosition, std::uint64_t enough);
    /// Notes that silence has been written to the piece from `beginSilence`.
    void addSilence(std::uint64_t frameCount);
    bool endsInSilence() const { return lastSilence_.end == written_; }

    /// Notes that the stream plays from `now` on, after a start or a pause.
    void resume(std::uint64_t now);
    /// Notes that the server has taken everything that was written before `serverPosition`.
    void noteTaken(std::uint64_t serverPosition, std::uint64_t now);
    /// Notes that the server had nothing to play behind `serverPosition`. Returns the client's
    /// position if the client does not know this yet.
    std::optional<std::uint64_t> noteDry(std::uint64_t serverPosition);
    /// Notes that the server stood still and that silence follows. Running dry behind this silence
    /// is not reported again.
    void expectDryBehindSilence();

    /// Updates `played` from the server's clock and returns it.
    std::uint64_t update(std::uint64_t serverPosition, std::uint64_t now);

    /// Number of all frames written.
    std::uint64_t written() const { return written_; }
    /// Number of the client's frames that were written.
    std::uint64_t pulled() const { return pulled_; }
    /// Number of the client's frames that had been played at the last `update`. Never decreases.
    std::uint64_t played() const { return played_; }
    /// Returns true if the server has taken all of the client's audio.
    bool isAllTaken() const { return isAllTaken_; }
    /// Number of the client's frames that may count as played by the server's clock alone. The last
    /// frame is included only when the server has taken it.
    std::uint64_t limit() const {
        return isAllTaken_ ? pulled_ : std::max<std::uint64_t>(pulled_, 1) - 1;
    }

    /// Returns the number of the client's frames before a position of the server.
    std::uint64_t clientFrame(std::uint64_t serverPosition) const;

 private:
    /// A piece of silence. It begins and ends at positions of the server.
    struct Silence {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    std::uint64_t audioEnd() const { return endsInSilence() ? lastSilence_.begin : written_; }

    const std::uint32_t rate_;
    std::uint64_t written_ = 0;
    std::uint64_t pulled_ = 0;
    std::uint64_t played_ = 0;

    // If the end of a piece does not fill a whole block, the server plays that end only when more
    // follows. The piece before the last one may therefore still sound. It is needed to compute
    // positions.
    Silence lastSilence_;
    Silence silenceBefore_;
    std::uint64_t olderSilence_ = 0;  ///< frames of all pieces before these two

    bool isAllTaken_ = true;
    std::uint64_t silentAt_ = 0;  ///< time when all audio taken has sounded

    std::uint64_t dryAt_ = 0;    ///< the client's position where it last ran dry
    std::uint64_t dryWith_ = 0;  ///< `pulled_` at that time
};

}  // namespace zav::detail
