#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/platform/OwnedAudioQueue.hpp"

namespace zav {

/// Captures audio from the device's microphone and pushes it, half a second at a time: its input
/// queue has three buffers, and each is pushed when it is full and given back to the queue.
///
/// A source records once. The buffers that a stop brings back stay with the source, and `record`
/// gives none to the queue, so that a second recording would never push anything: make a new source
/// for it.
///
/// For compressed formats a buffer has room for as many packets of the largest size as there are
/// frames in half a second, up to 320 KiB, which is far more than is ever filled: the queue hands
/// such a buffer over about every half second, too.
///
/// Behind an encoder these chunks are no whole number of codec frames: see `FrameAligner`.
///
/// Threads: flow start comes on the thread that calls `record`, everything else to the targets on
/// the queue's own thread, never two calls at once: `record` waits for one that is under way, and
/// holds the others back. Targets are added before `record`, or by a
/// target that is being called. All else may be called from any thread, also by targets and
/// completions; the application calls `record` and `stop` one at a time. The last reference to the
/// source may be dropped anywhere, also by a target or a completion. Targets throw nothing out of
/// the calls on the queue's thread.
class ZAV_EXPORT RecordSource : public AudioStreamOutputable {
 public:
    /// Makes the queue and its buffers, and captures nothing yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the status of a queue that cannot be made,
    /// and with status 0, always, when a buffer cannot be. A format whose `queueBufferSize` is
    /// negative or does not fit 32 bits is a fatal stop.
    RecordSource(NodeKey, const AudioStreamBasicDescription& dataFormat);
    /// Called by `makeNode`.
    void onMade(NodeKey, std::weak_ptr<RecordSource> self);

    /// Starts capturing, then announces flow start. No chunk is pushed before that is done.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status; nothing was announced.
    void record();

    /// Stops capturing at once. When the queue has brought back all buffers, with what was captured
    /// until now, flow end is announced on the queue's thread, and then `completion` runs, there
    /// too. A stop before that puts its own completion, or none, in place of this one. After the
    /// flow end, which also comes when the device goes away, `completion` runs inside the call.
    /// A source that is dropped before its flow has ended announces nothing and drops the
    /// completion: let that hold the source. One that never recorded announces a flow end, too.
    /// With a `record` before the flow end, that end and the completion wait for the next stop; so
    /// they do without end when the queue did not take all three buffers as the source was made.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status; the completion is dropped
    /// and an earlier one stays. `completion` throws nothing.
    void stop(std::function<void()> completion = {});

    /// Whether the queue runs. One that does not tell is a fatal stop.
    bool isRecording() const;
    /// Seconds of audio captured so far. A queue that does not tell is a fatal stop.
    double timeStamp() const;
    /// What a decoder of a compressed format needs, for `FileSink::setMagicCookie`; empty for PCM.
    /// A queue that does not tell its size is a fatal stop.
    std::vector<std::byte> magicCookie() const;
    /// Bytes of a queue buffer: half a second of packets, as if each held one frame, but at most
    /// 320 KiB. Half a second whose bytes 32 bits do not tell, such as ALAC of six channels at 192
    /// kHz, is a fatal stop, also when the source is made.
    std::uint32_t queueBufferSize() const;
    /// How many of the three buffers are with the source and not with the queue.
    std::uint64_t idleQueueBufferCount() const noexcept { return idleQueueBufferCount_; }
    /// The queue, to ask it for more. Belongs to the source.
    AudioQueueRef audioQueueRef() const noexcept { return queue_.get(); }

    /// The format that was asked for. Of what the queue's encoder adds it has nothing: for a
    /// compressed format set `mFramesPerPacket` yourself (AAC 1024, ALAC 4096, FLAC 4096 for
    /// instance, Opus a fiftieth of the rate), because a file sink behind the source needs it.
    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 private:
    static void onBuffer(void* userData, AudioQueueRef queue, AudioQueueBufferRef buffer,
                         const AudioTimeStamp* startTime, std::uint32_t packetCount,
                         const AudioStreamPacketDescription* packetDescriptions) noexcept;
    void takeBuffer(AudioQueueBuffer& buffer, std::uint32_t packetCount,
                    const AudioStreamPacketDescription* packetDescriptions);
    void endFlow();

    AudioStreamBasicDescription outDataFormat_;
    StreamTargets downstreams_;
    std::weak_ptr<RecordSource> self_;
    std::atomic<std::uint64_t> idleQueueBufferCount_ = 0;
    /// The targets are called under it: one call after the other, and none between the queue's
    /// start and the flow's. Recursive, because a target may call `record`.
    std::recursive_mutex targetsMutex_;

    std::mutex mutex_;  ///< for what follows; nothing is called under it
    std::function<void()> stopCompletionHandler_;
    bool flowHasEnded_ = false;

    OwnedAudioQueue queue_;  // last, so that no callback finds the rest gone
};

}  // namespace zav
