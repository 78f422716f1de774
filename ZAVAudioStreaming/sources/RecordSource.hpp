#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav {

namespace detail {
class RecordSourceImpl;
}

/// Captures audio from the device's microphone and pushes it, half a second at a time. Its input
/// queue has three buffers. The source pushes each buffer when it is full, and then gives it back
/// to the queue.
///
/// A source records only once. After a stop, the source keeps the buffers, and `record` does not
/// give them to the queue again. So a second recording would never push anything. Make a new source
/// for a second recording.
///
/// For compressed formats, the size of a buffer is the number of frames in half a second times the
/// largest packet size, at most 320 KiB. Captured audio never fills such a buffer: the queue hands
/// it over about every half second, too.
///
/// A chunk is rarely a whole number of codec frames: put a `FrameAligner` before an encoder.
///
/// Threads: the targets receive flow start on the thread that calls `record`, and all other calls
/// on the queue's own thread. They never receive two calls at once: `record` waits for a running
/// call and delays later calls. Add targets before `record`, or inside a call of a target. All
/// other functions may be called from any thread, also by targets and completions. The application
/// calls `record` and `stop` one at a time. The last reference to the source may be dropped
/// anywhere, also by a target or a completion. Targets must not throw from the calls on the queue's
/// thread.
class ZAV_EXPORT RecordSource : public AudioStreamOutputable {
 public:
    /// Makes the queue and its buffers. Captures nothing yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status if the queue cannot be
    /// made. Throws it with status 0, always, if a buffer cannot be made. Fatal in the same cases
    /// as `queueBufferSize`.
    RecordSource(NodeKey, const AudioStreamBasicDescription& dataFormat);
    ~RecordSource() override;
    /// Called by `makeNode`.
    void onMade(NodeKey, std::weak_ptr<RecordSource> self);

    /// Starts capturing, then calls flow start on the targets. No chunk is pushed before these
    /// calls have returned.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status. Flow start was not called
    /// then.
    void record();

    /// Stops capturing at once. The queue then returns all buffers with the audio captured so far.
    /// After the last buffer, the targets receive flow end on the queue's thread. Then `completion`
    /// runs on the same thread. If the flow has already ended, `completion` runs inside this call.
    /// The flow also ends when the device goes away.
    ///
    /// Another stop before the flow end replaces this completion, even with an empty one. If the
    /// source is dropped before the flow end, the targets receive no flow end and the completion
    /// does not run. To prevent this, let the completion hold the source. A source that never
    /// recorded also sends a flow end. If `record` is called again before the flow end, the flow
    /// end and the completion wait for the next stop. Neither comes if the queue did not take all
    /// three buffers when the source was made.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status. The new completion is
    /// dropped then, and an earlier one stays. `completion` must not throw.
    void stop(std::function<void()> completion = {});

    /// Whether the queue runs. Fatal if the queue cannot report it.
    bool isRecording() const;
    /// Seconds of audio captured so far. Fatal if the queue cannot report its time.
    double timeStamp() const;
    /// Bytes that a decoder of a compressed format needs. Pass them to `FileSink::setMagicCookie`.
    /// Empty for PCM. Fatal if the queue cannot report the cookie's size.
    std::vector<std::byte> magicCookie() const;
    /// Size of a queue buffer in bytes: half a second of packets, but at most 320 KiB. Each packet
    /// counts as one frame. Fatal if half a second is negative or exceeds 4 GiB (ALAC, six
    /// channels, 192 kHz).
    std::uint32_t queueBufferSize() const;
    /// Number of the three buffers that the source holds and the queue does not.
    std::uint64_t idleQueueBufferCount() const noexcept;
    /// The queue, for access to its other properties. The source owns the queue.
    AudioQueueRef audioQueueRef() const noexcept;

    /// The requested format. It lacks the values that the queue's encoder adds. For a compressed
    /// format, set `mFramesPerPacket` yourself, because a file sink behind the source needs it: AAC
    /// 1024, ALAC 4096, FLAC 4096, Opus a fiftieth of the rate.
    AudioStreamBasicDescription outDataFormat() const override;
    const StreamTargets& downstreams() const noexcept;
    /// Waits while another thread calls the targets. So a target must not wait for a thread that
    /// adds a target.
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    std::unique_ptr<detail::RecordSourceImpl> impl_;
};

}  // namespace zav
