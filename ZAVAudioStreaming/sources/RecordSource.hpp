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
/// queue has three buffers. Each one is pushed when it is full, and then given back to the queue.
///
/// A source records once. The buffers that a stop brings back stay with the source, and `record`
/// gives none to the queue, so a second recording would never push anything. Make a new source for
/// it.
///
/// For compressed formats a buffer has room for as many packets of the largest size as there are
/// frames in half a second, up to 320 KiB. That is far more than is ever filled: the queue hands
/// over such a buffer about every half second, too.
///
/// A chunk is rarely a whole number of codec frames: put a `FrameAligner` before an encoder.
///
/// Threads: flow start comes on the thread that calls `record`, everything else comes to the
/// targets on the queue's own thread. They never see two calls at once: `record` waits for a call
/// that is under way, and holds back the others. Add targets before `record`, or in a target that
/// is being called. Everything else may be called from any thread, also by targets and completions.
/// The application calls `record` and `stop` one at a time. The last reference to the source may be
/// dropped anywhere, also by a target or a completion. Targets throw nothing out of the calls on
/// the queue's thread.
class ZAV_EXPORT RecordSource : public AudioStreamOutputable {
 public:
    /// Makes the queue and its buffers, and captures nothing yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status if the queue cannot be
    /// made, and always with status 0 if a buffer cannot. Fatal where `queueBufferSize` is fatal.
    RecordSource(NodeKey, const AudioStreamBasicDescription& dataFormat);
    ~RecordSource() override;
    /// Called by `makeNode`.
    void onMade(NodeKey, std::weak_ptr<RecordSource> self);

    /// Starts capturing, then announces flow start. No chunk is pushed before that is done.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status; nothing was announced.
    void record();

    /// Stops capturing at once. The queue then brings back all buffers, with what was captured
    /// until now. After the last one, flow end is announced on the queue's thread, and then
    /// `completion` runs, there too. After the flow end, `completion` runs inside the call. The
    /// flow also ends when the device goes away.
    ///
    /// Another stop before the flow end puts its own completion, or none, in place of this one. A
    /// source that is dropped before its flow has ended announces nothing and drops the completion:
    /// let the completion hold the source. A source that never recorded announces a flow end, too.
    /// After a `record` before the flow end, that end and the completion wait for the next stop.
    /// They never come if the queue did not take all three buffers when the source was made.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status; the completion is dropped
    /// and an earlier one stays. `completion` throws nothing.
    void stop(std::function<void()> completion = {});

    /// Whether the queue runs. Fatal if the queue cannot report it.
    bool isRecording() const;
    /// Seconds of audio captured so far. Fatal if the queue cannot report its time.
    double timeStamp() const;
    /// What a decoder of a compressed format needs, for `FileSink::setMagicCookie`; empty for PCM.
    /// Fatal if the queue cannot report the cookie's size.
    std::vector<std::byte> magicCookie() const;
    /// Bytes of a queue buffer: half a second of packets, each counted as one frame, but at most
    /// 320 KiB. Fatal if half a second is negative or exceeds 4 GiB (ALAC, six channels, 192 kHz).
    std::uint32_t queueBufferSize() const;
    /// How many of the three buffers are with the source and not with the queue.
    std::uint64_t idleQueueBufferCount() const noexcept;
    /// The queue, for its other properties. Belongs to the source.
    AudioQueueRef audioQueueRef() const noexcept;

    /// The format that was asked for. It lacks what the queue's encoder adds. For a compressed
    /// format, set `mFramesPerPacket` yourself, because a file sink behind the source needs it:
    /// AAC 1024, ALAC 4096, FLAC 4096, Opus a fiftieth of the rate.
    AudioStreamBasicDescription outDataFormat() const override;
    const StreamTargets& downstreams() const noexcept;
    /// Waits for a call of the targets on another thread: a target must not wait for a thread that
    /// adds another one.
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    std::unique_ptr<detail::RecordSourceImpl> impl_;
};

}  // namespace zav
