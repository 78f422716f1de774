#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// The device of audio queues. It opens PCM streams. A stream is opened for one run of a queue and
/// closed at the end of the run. A device does not know buffers, packets or the application's
/// callbacks.
///
/// Formats: packed linear PCM of unsigned 8, signed 16, 24 and 32 bits and floats of 32 bits, in
/// both byte orders, and A-law and mu-law; interleaved, 1 to 8 channels, whole rates of 8 to 192
/// kHz. Queues use no other format (`PcmConversion`).
///
/// Threads: the functions of a client are called on the device thread or inside a function of the
/// stream. Calls of a client never overlap. These functions take no lock, allocate nothing, do not
/// wait and call no function of a stream. Some functions of a stream are marked as cheap. They may
/// be called at the same time as any other function except the destructor. One thread at a time
/// calls the other functions.
namespace zav::detail {

/// The source of a stream that plays: the queue, as the device sees it.
class PlaybackClient {
 public:
    static constexpr std::uint64_t kNoMark = std::numeric_limits<std::uint64_t>::max();

    /// Copies the next audio into `room` and returns the number of bytes copied. Both sizes are
    /// whole frames. If it copies less than `room`, the queue has no more audio.
    virtual std::size_t pull(std::span<std::byte> room) noexcept = 0;

    /// Returns the number of frames, counted from the opening of the stream, that the queue waits
    /// for. The queue waits until they have been played. kNoMark if it waits for nothing. The mark
    /// can change in `pull`, in `played`, and before `audioAdded`.
    virtual std::uint64_t mark() const noexcept = 0;

    /// Reports the number of frames played since the opening. It never decreases and never exceeds
    /// the frames pulled. Called when the mark has been reached, and possibly at other times. A
    /// frame counts as played when it has sounded, within the precision of the device (some
    /// milliseconds).
    virtual void played(std::uint64_t frameCount) noexcept = 0;

    /// The device was not paused, needed audio and got none. `frameCount` frames had been played.
    /// Called once each time the device runs dry, but not before the first frame. Also called at
    /// the end of a stream, unless the stream is closed before.
    virtual void ranDry(std::uint64_t frameCount) noexcept = 0;

    /// The device is gone, or has not answered for seconds. No further call comes.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~PlaybackClient() = default;
};

/// A stream that plays. After opening, it is paused and has pulled nothing. The destructor closes
/// the stream at once and drops audio that has not been played. The client is not called after
/// that. When the device is gone, `start` and `pause` return kAudioQueueErr_InvalidDevice, and the
/// other functions do nothing.
class PlaybackStream {
 public:
    virtual ~PlaybackStream() = default;

    /// Starts the stream, or resumes it where it was paused. Pulls enough audio for its latency
    /// before it returns.
    virtual OSStatus start() = 0;
    /// Pauses the stream. Audio that was pulled and not played is played after the next start.
    virtual OSStatus pause() = 0;
    /// Announces that the client has more audio than at the last pull, or another mark. Cheap.
    virtual void audioAdded() = 0;
    /// Announces that the client has no more audio. The stream then makes sure that the last frame
    /// is played and reported. This call does not wait for that. A later `start` or `audioAdded`
    /// ends the draining. A short silence may then precede the new audio. Has no effect while the
    /// stream is paused. Cheap.
    virtual void drain() = 0;
    /// Returns the frames played since the opening, within the precision of the device. The count
    /// stands still while the stream is paused or dry. It never decreases and never exceeds the
    /// frames pulled. Cheap.
    virtual std::uint64_t framesPlayed() = 0;
};

/// The target of a stream that captures: the queue, as the device sees it.
class CaptureClient {
 public:
    /// Takes captured audio and returns the number of bytes taken. Both sizes are whole frames. If
    /// the client has no room for some audio, the device keeps that audio as long as it can. It
    /// pushes that audio again after `roomAdded`.
    virtual std::size_t push(std::span<const std::byte> captured) noexcept = 0;

    /// As for `PlaybackClient`.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~CaptureClient() = default;
};

/// A stream that captures as soon as it is opened. The client may be called before `openCapture`
/// has returned. The destructor closes the stream at once. The client is not called after that.
/// When the device is gone, the stream does nothing more.
class CaptureStream {
 public:
    virtual ~CaptureStream() = default;

    /// Ends capturing. Pushes the audio captured until now, and nothing after that. Drops audio
    /// that the client does not take. `deviceGone` may still be called after this. Waits for the
    /// device for one second at most.
    virtual void finish() = 0;
    /// Announces that the client has room again. Cheap.
    virtual void roomAdded() = 0;
};

/// Opens streams. `client` must outlive the stream. Statuses: kAudioQueueErr_InvalidDevice if there
/// is no server or no device, kAudioQueueErr_CannotStart if the server refuses or does not answer
/// in time, kAudioFormatUnsupportedDataFormatError for formats that are not listed above. `stream`
/// is unchanged after an error. Waits for three seconds at most.
///
/// Threads: any.
class QueueDevice {
 public:
    virtual ~QueueDevice() = default;

    virtual OSStatus openPlayback(const AudioStreamBasicDescription& format, PlaybackClient& client,
                                  std::unique_ptr<PlaybackStream>& stream) = 0;
    virtual OSStatus openCapture(const AudioStreamBasicDescription& format, CaptureClient& client,
                                 std::unique_ptr<CaptureStream>& stream) = 0;
};

/// Returns the device that queues open. It is the sound server's device, unless a test has replaced
/// it. Returns null if the module for the sound server is not installed.
QueueDevice* queueDevice();

/// Replaces the sound server with `device` for queues that are started later. Null restores the
/// server.
void setQueueDevice(QueueDevice* device);

}  // namespace zav::detail
