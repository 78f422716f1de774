#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// The device of audio queues: PCM streams that are opened for one run of a queue and closed at its
/// end. A device knows nothing about buffers, packets and the application's callbacks.
///
/// Formats: packed linear PCM of unsigned 8, signed 16, 24 and 32 bits and floats of 32 bits, in
/// both byte orders, and A-law and mu-law; interleaved, 1 to 8 channels, whole rates of 8 to 192
/// kHz. Queues use no other format (`PcmConversion`).
///
/// Threads: the functions of a client are called on the device thread or inside a function of the
/// stream, never two at once. They take no lock, allocate nothing, do not wait and call no function
/// of a stream. Functions of a stream that are marked as cheap may be called beside any other but
/// the destructor. The others are called by one thread at a time.
namespace zav::detail {

/// The source of a stream that plays: the queue, as the device sees it.
class PlaybackClient {
 public:
    static constexpr std::uint64_t kNoMark = std::numeric_limits<std::uint64_t>::max();

    /// Copies the next audio into `room` and returns the bytes copied. Both are whole frames. Fewer
    /// bytes than there is room for mean that the queue has no more.
    virtual std::size_t pull(std::span<std::byte> room) noexcept = 0;

    /// The queue waits until this many frames have been played since the opening of the stream;
    /// kNoMark if it waits for nothing. Changes in `pull`, in `played`, and before `audioAdded`.
    virtual std::uint64_t mark() const noexcept = 0;

    /// Reports the frames played since the opening: never fewer than reported before, never more
    /// than were pulled. Called when the mark has been reached, and at any other time. A frame
    /// counts as played when it has sounded, to within the precision of the device (some
    /// milliseconds).
    virtual void played(std::uint64_t frameCount) noexcept = 0;

    /// The device needed audio and got none, while it was not paused. `frameCount` frames had been
    /// played. Called once each time that the device runs dry, also at the end of a stream unless
    /// it is closed before; not before the first frame.
    virtual void ranDry(std::uint64_t frameCount) noexcept = 0;

    /// The device is gone, or has not answered for seconds. No further call comes.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~PlaybackClient() = default;
};

/// A stream that plays. It is opened paused, with nothing pulled. The destructor closes it at once:
/// audio that has not been played is dropped, and the client is not called after it. When the
/// device is gone, `start` and `pause` return kAudioQueueErr_InvalidDevice, and the other functions
/// do nothing.
class PlaybackStream {
 public:
    virtual ~PlaybackStream() = default;

    /// Starts, or resumes where a pause left off. Pulls enough for its latency before it returns.
    virtual OSStatus start() = 0;
    /// Audio that was pulled and not played is played after the next start.
    virtual OSStatus pause() = 0;
    /// The client has more audio than at the last pull, or another mark. Cheap.
    virtual void audioAdded() = 0;
    /// The client has no more audio: the stream makes sure that the last frame is played and
    /// reported. Does not wait for that. A later `start` or `audioAdded` ends this; a moment of
    /// silence may then come between. Has no effect while the stream is paused. Cheap.
    virtual void drain() = 0;
    /// Frames played since the opening, to within the precision of the device. Stands still while
    /// the stream is paused or dry, never decreases, never exceeds the frames pulled. Cheap.
    virtual std::uint64_t framesPlayed() = 0;
};

/// The target of a stream that captures: the queue, as the device sees it.
class CaptureClient {
 public:
    /// Takes captured audio and returns the bytes taken. Both are whole frames. Audio that it has
    /// no room for is pushed again after `roomAdded`; the device keeps it as long as it can.
    virtual std::size_t push(std::span<const std::byte> captured) noexcept = 0;

    /// As for `PlaybackClient`.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~CaptureClient() = default;
};

/// A stream that captures from its opening on: the client may be called before `openCapture` has
/// returned. The destructor closes it at once; the client is not called after it. When the device
/// is gone, the stream does nothing more.
class CaptureStream {
 public:
    virtual ~CaptureStream() = default;

    /// Ends capturing: pushes the audio captured until now, and no more. Audio that the client does
    /// not take is dropped. `deviceGone` may still be called after this. Waits for the device, for
    /// a second at most.
    virtual void finish() = 0;
    /// The client has room again. Cheap.
    virtual void roomAdded() = 0;
};

/// Opens streams. `client` outlives the stream. Statuses: kAudioQueueErr_InvalidDevice if there is
/// no server or no device, kAudioQueueErr_CannotStart if it refuses or does not answer in time,
/// kAudioFormatUnsupportedDataFormatError for any other format than those above. `stream` is
/// unchanged then. Waits for three seconds at most.
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

/// The device that queues open: the sound server's, unless a test has replaced it. Null if the
/// module for the sound server is not installed.
QueueDevice* queueDevice();

/// Replaces the sound server by `device` for the queues started from now on. Null restores the
/// server.
void setQueueDevice(QueueDevice* device);

}  // namespace zav::detail
