#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/OSStatus.hpp"

/// What audio queues ask of a device: PCM streams that are opened for one run of a queue and closed
/// at its end. A device knows nothing of buffers, packets and callbacks of applications.
///
/// Formats: packed linear PCM of unsigned 8, signed 16, 24 and 32 bits and floats of 32 bits, in
/// both byte orders, and A-law and mu-law; interleaved, 1 to 8 channels, 8 to 192 kHz, whole
/// numbers. Queues ask for nothing else (`PcmConversion`).
///
/// Threads: the clients' functions are called on the device thread or inside a function of the
/// stream, never two at once; they take no lock, allocate nothing, do not wait and call no function
/// of a stream. Of a stream's functions, those that are said to be cheap may be called beside any
/// other but the destructor; the rest are called by one thread at a time.
namespace zav::detail {

/// Where a stream that plays gets its audio: the queue, seen from the device.
class PlaybackClient {
 public:
    static constexpr std::uint64_t kNoMark = std::numeric_limits<std::uint64_t>::max();

    /// Copies the next audio into `room`, which is whole frames, and returns the bytes copied:
    /// whole frames, fewer than there is room for when the queue has no more.
    virtual std::size_t pull(std::span<std::byte> room) noexcept = 0;

    /// The number of frames, counted from the opening of the stream, that the queue waits for to
    /// have been played; kNoMark when it waits for none. Changes in `pull`, in `played`, and before
    /// `audioAdded`.
    virtual std::uint64_t mark() const noexcept = 0;

    /// So many frames have been played since the opening: never fewer than said before, never more
    /// than were pulled. Called when the mark is reached, not before the frame at it has sounded by
    /// more than the device's own uncertainty (some milliseconds); at other times as it suits.
    virtual void played(std::uint64_t frameCount) noexcept = 0;

    /// The device wanted audio for its next moment and there was none, while it was not paused;
    /// so many frames had been played. Once each time that it runs dry, also at the end of a stream
    /// that nothing follows, unless the stream is closed before. Not before the first frame.
    virtual void ranDry(std::uint64_t frameCount) noexcept = 0;

    /// The device is gone, or has not answered for seconds. No further call comes.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~PlaybackClient() = default;
};

/// A stream that plays. Opened paused, with nothing pulled. The destructor closes it at once: what
/// has not been played is dropped, and no call of the client runs or comes after it. When the
/// device is gone, `start` and `pause` answer kAudioQueueErr_InvalidDevice and the rest does
/// nothing.
class PlaybackStream {
 public:
    virtual ~PlaybackStream() = default;

    /// Starts, or goes on where a pause left it. Pulls what its latency needs before it returns.
    virtual OSStatus start() = 0;
    /// What was pulled and not played stays where it is.
    virtual OSStatus pause() = 0;
    /// The client has more to pull than at the last pull, or another mark. Cheap.
    virtual void audioAdded() = 0;
    /// Nothing follows what the client has: see to it that the last frame is played and said to
    /// have been. Does not wait for it. `start` or `audioAdded` may still follow, and end this;
    /// a moment of silence may then stand between. Without effect while the stream is paused.
    /// Cheap.
    virtual void drain() = 0;
    /// Frames played since the opening, as exactly as the device can tell; stands still while the
    /// stream is paused or has run dry, never goes back, never exceeds what was pulled. Cheap.
    virtual std::uint64_t framesPlayed() = 0;
};

/// Where a stream that captures puts its audio: the queue, seen from the device.
class CaptureClient {
 public:
    /// Takes captured audio, whole frames, and returns the bytes taken, whole frames. What it has
    /// no room for is offered again after `roomAdded`; the device keeps it as long as it can.
    virtual std::size_t push(std::span<const std::byte> captured) noexcept = 0;

    /// As for `PlaybackClient`.
    virtual void deviceGone() noexcept = 0;

 protected:
    ~CaptureClient() = default;
};

/// A stream that captures, from its opening on: the client may be called before `openCapture` has
/// returned. The destructor closes it at once; no call of the client runs or comes after it. When
/// the device is gone, the stream does nothing more.
class CaptureStream {
 public:
    virtual ~CaptureStream() = default;

    /// Ends capturing: pushes what was captured until now, then nothing more. What the client does
    /// not take is dropped. That the device goes away is told also after this. Waits for the
    /// device, a second at most.
    virtual void finish() = 0;
    /// The client has room again. Cheap.
    virtual void roomAdded() = 0;
};

/// Opens streams. `client` outlives the stream. Statuses: kAudioQueueErr_InvalidDevice when there
/// is no server or no device, kAudioQueueErr_CannotStart when it does not answer in time or
/// refuses, kAudioFormatUnsupportedDataFormatError for another format than those above; `stream` is
/// untouched then. Waits three seconds at most.
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

/// The device that queues open: the sound server's, unless a test has put another in its place.
/// Null when the module that talks to the sound server is not installed.
QueueDevice* queueDevice();

/// Puts `device` in place of the sound server for the queues started from now on; null brings the
/// server back.
void setQueueDevice(QueueDevice* device);

}  // namespace zav::detail
