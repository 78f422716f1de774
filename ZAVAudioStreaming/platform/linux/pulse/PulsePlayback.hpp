#pragma once

#include <limits>

#include "ZAVAudioStreaming/platform/linux/AudioDevice.hpp"
#include "ZAVAudioStreaming/platform/linux/pulse/PulseStream.hpp"

namespace zav {

/// Plays through the sound server. The client is asked for audio when the server wants some.
///
/// The stream's clock tells how many frames have sounded, and a timer is set to the moment when it
/// is to reach the client's mark. The clock is an estimate: it can run ahead of what sounds, and
/// stand still a few frames short of the end. So the last frame that was written counts as played
/// only when the server has said that it has nothing left, and as much time has gone by as what it
/// took last needs to sound.
///
/// Threads: as `PlaybackStream`; the rest runs with the connection's lock.
class PulsePlayback final : public PlaybackStream, private PulseStream {
 public:
    explicit PulsePlayback(PlaybackClient& client) : client_(client) {}
    ~PulsePlayback() override { close(); }
    PulsePlayback(const PulsePlayback&) = delete;
    PulsePlayback& operator=(const PulsePlayback&) = delete;

    /// Statuses: those of `AudioDevice`. Once.
    OSStatus open(const AudioStreamBasicDescription& format) {
        return PulseStream::open(format, PA_STREAM_PLAYBACK, PA_STREAM_START_CORKED);
    }

    OSStatus start() override;
    OSStatus pause() override;
    void audioAdded() override;
    void drain() override;
    std::uint64_t framesPlayed() override;

 private:
    static constexpr std::uint64_t kNowhere = std::numeric_limits<std::uint64_t>::max();

    void opened() override;
    void heard() noexcept override;
    void lost() noexcept override;

    /// Writes what the server takes and the client has.
    void fill();
    /// The server had nothing to play behind this frame.
    void ranDry(std::uint64_t frame);
    /// Tells the client if its mark is reached, and sets the timer to the next one.
    void tell();
    void timeIsUp();
    /// Brings `played_` up to date.
    std::uint64_t position();
    /// How many frames may be said to have been played.
    std::uint64_t limit() const { return isAllTaken_ || pulled_ == 0 ? pulled_ : pulled_ - 1; }

    PlaybackClient& client_;
    std::optional<PulseTimer> timer_;
    bool isPlaying_ = false;
    bool isDraining_ = false;

    // All positions are frames since the opening.
    std::uint64_t pulled_ = 0;
    std::uint64_t played_ = 0;
    std::uint64_t dryAt_ = kNowhere;      ///< where the server ran dry last
    std::uint64_t drainedTo_ = kNowhere;  ///< where it was last asked to drain
    /// The server has nothing left; what it took last sounds until `silentAt_`.
    bool isAllTaken_ = false;
    pa_usec_t silentAt_ = 0;
    /// What the timer was set for, and the position then.
    std::uint64_t timedMark_ = PlaybackClient::kNoMark;
    std::uint64_t timedFrom_ = 0;
};

}  // namespace zav
