#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "ZAVAudioStreaming/modules/pulse/PlaybackPositions.hpp"
#include "ZAVAudioStreaming/modules/pulse/PulseStream.hpp"
#include "ZAVAudioStreaming/modules/pulse/WideSamples.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"

namespace zav::detail {

/// Plays through the sound server. It pulls audio from the client when the server requests audio. A
/// timer is set to the time of the client's mark. When it fires, played frames are reported.
///
/// PipeWire works in blocks. It does not play a last piece that is shorter than a block. This class
/// therefore writes silence behind that piece. If nothing follows, it writes at once. Otherwise it
/// writes when the server has stood still for a moment. (PipeWire's own drain function loses the
/// audio that comes after it.) The client's positions do not count this silence: see
/// `PlaybackPositions`.
///
/// Threads: as `PlaybackStream`. All other members need the lock of the loop.
class PulsePlayback final : public PlaybackStream, private PulseStream {
 public:
    explicit PulsePlayback(PlaybackClient& client) : client_(client) {}
    ~PulsePlayback() override;
    PulsePlayback(const PulsePlayback&) = delete;
    PulsePlayback& operator=(const PulsePlayback&) = delete;

    /// Statuses: those of `QueueDevice`. Called once.
    OSStatus open(const AudioStreamBasicDescription& format);

    OSStatus start() override;
    OSStatus pause() override;
    void audioAdded() override;
    void drain() override;
    std::uint64_t framesPlayed() override;

 private:
    void opened() override ZAV_REQUIRES(loop());
    void heard() noexcept override ZAV_REQUIRES(loop());
    void lost() noexcept override ZAV_REQUIRES(loop());

    /// Writes audio until the server or the client has enough.
    void fill() ZAV_REQUIRES(loop());
    /// Returns the number of bytes that the client has put into `room`, counted in the server's
    /// format.
    std::size_t pull(std::span<std::byte> room) ZAV_REQUIRES(loop());
    /// Called when the client has no more audio. Makes the server play all the audio that it has.
    void pad() ZAV_REQUIRES(loop());
    void stoodStill() ZAV_REQUIRES(loop());
    void writeSilence() ZAV_REQUIRES(loop());
    /// Notes that the server has taken everything that was written before this position.
    void noteTaken(std::uint64_t serverPosition) ZAV_REQUIRES(loop());
    /// Notes that the server had nothing to play behind this position.
    void ranDry(std::uint64_t serverPosition) ZAV_REQUIRES(loop());

    /// Reports played frames to the client if its mark is reached, and sets the timer to the mark.
    void reportPlayed() ZAV_REQUIRES(loop());
    void markIsDue() ZAV_REQUIRES(loop());
    /// Returns the number of the client's frames that have been played.
    std::uint64_t position() ZAV_REQUIRES(loop());
    std::uint64_t serverPosition() const ZAV_REQUIRES(loop());

    PlaybackClient& client_;
    /// Set if the client's samples have 8 bits and the server's samples 16.
    const WideSamples* wideSamples_ = nullptr;
    std::optional<PulseTimer> markTimer_ ZAV_GUARDED_BY(loop());
    std::optional<PulseTimer> padTimer_ ZAV_GUARDED_BY(loop());
    std::optional<PlaybackPositions> positions_ ZAV_GUARDED_BY(loop());  ///< set by `open`

    bool isPlaying_ ZAV_GUARDED_BY(loop()) = false;
    bool isDraining_ ZAV_GUARDED_BY(loop()) = false;
    bool isEmpty_ ZAV_GUARDED_BY(loop()) = false;  ///< the last pull got less audio than it wanted
    bool isDry_ ZAV_GUARDED_BY(loop()) = true;     ///< the server reports that it stands still
    /// The client's position at which the server was last asked whether it has taken everything.
    std::uint64_t askedAt_ ZAV_GUARDED_BY(loop()) = 0;
    /// The mark that the timer is set to, and the position at which it was set.
    std::uint64_t timedMark_ ZAV_GUARDED_BY(loop()) = PlaybackClient::kNoMark;
    std::uint64_t timedFrom_ ZAV_GUARDED_BY(loop()) = 0;
};

}  // namespace zav::detail
