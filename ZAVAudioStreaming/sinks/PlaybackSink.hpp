#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav {

namespace detail {
class PlaybackSinkImpl;
}

/// Plays received audio. The format is the upstream's format when the sink is made: PCM, or any
/// format that the audio queue can decode. The sink copies chunks into queue buffers. It enqueues a
/// buffer that is at least half full. A buffer with less audio waits for the next chunk or the flow
/// end.
///
/// Nothing plays until `play`, or until the delay of `autoPlay` has been enqueued. The sink pauses
/// a queue that has no more audio, and resumes it with the next buffer. At flow end, the queue
/// plays the rest and stops by itself. The queue also stops when the device goes away. Chunks then
/// collect in memory until the application plays again. If the sink was `paused` at a stop, no call
/// is needed: its next buffer starts the queue.
///
/// The sink enqueues every buffer with the packet descriptions of the chunk that filled it up. It
/// does not change the descriptions. For packets of varying size, push chunks that fill one buffer
/// each. Packets of constant size need no descriptions.
///
/// Unlike other nodes, a sink is registered before it can fail. If the queue cannot be made,
/// `makeNode` throws, and the failed sink stays registered with its upstream. It then ignores all
/// audio and prints nothing. Do not call its other operations: they have no queue.
///
/// Threads: chunks, flow start and flow end come on the thread that drives the graph. All other
/// functions may be called from any thread, also by `audioDataAcquireHandler`. The application
/// calls `play`, `autoPlay` and `stop` one at a time. The last reference may be dropped anywhere.
class ZAV_EXPORT PlaybackSink : public AudioStreamInputable {
 public:
    PlaybackSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~PlaybackSink() override;
    /// Called by `makeNode`. Throws `AudioQueueError::failure` with the queue's status if the queue
    /// cannot be made.
    void onMade(NodeKey, std::weak_ptr<PlaybackSink> self);

    /// Starts playing, even if no audio has been received yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status. Fatal while an `autoPlay`
    /// is pending; `stop` cancels it.
    void play();

    /// Starts playing as soon as `delayInSeconds` of audio are enqueued. The sink checks this each
    /// time it enqueues a buffer. Flow end starts a shorter stream. Compressed formats start with
    /// the first buffer, because their number of bytes gives no duration. A sink that is still
    /// `paused` starts with its next buffer without this check. It checks with the buffer after
    /// that.
    ///
    /// Errors: fatal if the queue runs, or cannot report whether it runs.
    void autoPlay(double delayInSeconds);

    /// Stops at once and cancels a pending `autoPlay`. Audio that was not played is dropped.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status.
    void stop();

    /// Whether the queue runs. A paused queue runs, too. Fatal if the queue cannot report it.
    bool isPlaying() const;
    /// True after the queue has stopped and has played every buffer that it was given for its last
    /// run or later. False if the device was lost first, also while the sink was paused. Fatal if
    /// the queue cannot report it.
    bool hasPlayedAll() const;
    /// Seconds played so far. Fatal if the queue cannot report its time.
    double timeStamp() const;

    /// Size in bytes of each buffer that is allocated from now on. If no size is set, the sink
    /// computes it when it first needs it: half a second of packets of the largest size, 16 KiB to
    /// 320 KiB, but at least one packet. Fatal if half a second is negative or exceeds 4 GiB.
    std::uint32_t queueBufferSize();
    void setQueueBufferSize(std::uint32_t sizeInBytes);
    /// Packets of the largest size that fit in a buffer. Fatal if the queue cannot report that size
    /// or reports 0.
    std::uint32_t maxPacketNumForBuffer();

    /// The sink calls this handler after each played buffer. The application can then push more
    /// audio. The handler runs on the dispatch queue's thread, and no lock of the sink is held. It
    /// may call the sink or drop it. Its exceptions are ignored.
    std::function<void()> audioDataAcquireHandler() const;
    void setAudioDataAcquireHandler(std::function<void()> handler);

    /// Whether the sink has paused the queue because all audio was played. Stays true while the
    /// rest of a stream plays after flow end. `play` and `stop` do not change it.
    bool paused() const;
    /// The pending delay of `autoPlay`, in seconds.
    std::optional<double> delayPlaySchedule() const;
    /// Buffers that the queue has allocated so far. They are reused.
    std::size_t allocatedBufferCount() const;
    /// Number of allocated buffers that are not enqueued. The first of these buffers may be partly
    /// filled.
    std::size_t idleBufferCount() const;
    /// The queue, for access to its other properties, such as the magic cookie. The sink owns the
    /// queue.
    AudioQueueRef audioQueueRef() const noexcept;

    /// The upstream that this node was made with. Fatal if it is gone.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    void onAudioStreamFlowStart() override {}
    /// Copies a chunk into queue buffers. When the queue refuses a buffer, the rest of the chunk is
    /// dropped silently. The next chunk tries that buffer again.
    ///
    /// Errors: fatal ("Can not allocate buffer") if the queue cannot allocate a buffer. Fatal if
    /// memory is exhausted. Fatal if `packetNum` exceeds 32 bits and descriptions are given. While
    /// `autoPlay` is pending, also fatal if the bytes per second or the enqueued bytes exceed 32
    /// bits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    /// Enqueues the rest. A pending `autoPlay` starts the queue first. The queue stops after it has
    /// played the rest. Failures of the queue are ignored. Fatal if the queue cannot report whether
    /// it runs.
    void onAudioStreamFlowEnd() override;

 private:
    UpstreamLink upstream_;
    std::unique_ptr<detail::PlaybackSinkImpl> impl_;
};

}  // namespace zav
