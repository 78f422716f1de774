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

/// Plays what it receives. The format is the one that the upstream has when the sink is made: PCM,
/// or any that the audio queue can decode. Chunks are copied into queue buffers. A buffer is
/// enqueued when it is at least half full; less than that waits for the next chunk or the flow end.
///
/// Nothing plays until `play`, or until the delay of `autoPlay` has been enqueued. The sink pauses
/// a queue that runs dry, and resumes it with the next buffer. At flow end the rest is played and
/// the queue stops by itself. The queue also stops when the device goes away; chunks then gather in
/// memory until the application plays again. A sink that was `paused` at a stop needs no call: its
/// next buffer starts the queue.
///
/// Every buffer is enqueued with the packet descriptions of the chunk that filled it up, unchanged.
/// For packets of varying size, push chunks that fill one buffer each. Packets of constant size
/// need no descriptions.
///
/// Unlike other nodes, a sink is registered before it can fail. When the queue cannot be made,
/// `makeNode` throws and the failed sink stays with its upstream. It then ignores all audio and
/// prints nothing. Do not call its other operations: they have no queue.
///
/// Threads: chunks, flow start and flow end on the thread that drives the graph. Everything else
/// may be called from any thread, also by `audioDataAcquireHandler`. The application calls `play`,
/// `autoPlay` and `stop` one at a time. The last reference may be dropped anywhere.
class ZAV_EXPORT PlaybackSink : public AudioStreamInputable {
 public:
    PlaybackSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~PlaybackSink() override;
    /// Called by `makeNode`. Throws `AudioQueueError::failure` with the queue's status if the queue
    /// cannot be made.
    void onMade(NodeKey, std::weak_ptr<PlaybackSink> self);

    /// Starts playing, also when nothing has been received yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status. Fatal while an `autoPlay`
    /// is pending; `stop` cancels it.
    void play();

    /// Starts playing as soon as `delayInSeconds` of audio are enqueued. The sink checks this
    /// whenever it enqueues a buffer; the flow end starts a shorter stream. Compressed formats
    /// start with the first buffer, because their number of bytes gives no duration. A sink that is
    /// still `paused` starts with its next buffer regardless, and checks with the one after that.
    ///
    /// Errors: fatal if the queue runs, or cannot report whether it runs.
    void autoPlay(double delayInSeconds);

    /// Stops at once and cancels a pending `autoPlay`. Audio that was not played is dropped.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status.
    void stop();

    /// Whether the queue runs, also while it is paused. Fatal if the queue cannot report it.
    bool isPlaying() const;
    /// True after the queue has stopped and has played every buffer that it was given for its last
    /// run or since. False if the device was lost first, also while the sink was paused. Fatal if
    /// the queue cannot report it.
    bool hasPlayedAll() const;
    /// Seconds played so far. Fatal if the queue cannot report its time.
    double timeStamp() const;

    /// Bytes of each buffer that is allocated from now on. Unless it is set, it is computed when it
    /// is first needed: half a second of packets of the largest size, 16 KiB to 320 KiB, but at
    /// least one packet. Fatal if half a second is negative or exceeds 4 GiB.
    std::uint32_t queueBufferSize();
    void setQueueBufferSize(std::uint32_t sizeInBytes);
    /// Packets of the largest size that fit in a buffer. Fatal if the queue cannot report that size
    /// or reports 0.
    std::uint32_t maxPacketNumForBuffer();

    /// Called whenever a buffer has been played, to push more. It runs on the dispatch queue's
    /// thread, while no lock of the sink is held. It may call the sink or drop it. What it throws
    /// is ignored.
    std::function<void()> audioDataAcquireHandler() const;
    void setAudioDataAcquireHandler(std::function<void()> handler);

    /// Whether the sink has paused the queue because all audio was played. Stays true while the
    /// flow end plays the rest of a stream, and through `play` and `stop`.
    bool paused() const;
    /// The pending delay of `autoPlay`, in seconds.
    std::optional<double> delayPlaySchedule() const;
    /// Buffers that the queue has allocated so far. They are reused.
    std::size_t allocatedBufferCount() const;
    /// How many of them are not enqueued. The first one may be partly filled.
    std::size_t idleBufferCount() const;
    /// The queue, for its other properties, such as the magic cookie. Belongs to the sink.
    AudioQueueRef audioQueueRef() const noexcept;

    /// The node that this one was made on. Fatal if it is gone.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    void onAudioStreamFlowStart() override {}
    /// Copies a chunk into queue buffers. When the queue refuses a buffer, the rest of the chunk is
    /// dropped silently. The next chunk tries that buffer again.
    ///
    /// Errors: fatal ("Can not allocate buffer") if the queue cannot allocate a buffer. Fatal if
    /// memory is exhausted; if `packetNum` exceeds 32 bits and descriptions are given; or if the
    /// bytes per second, or the bytes enqueued while `autoPlay` is pending, exceed 32 bits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    /// Enqueues the rest. The queue stops once that has been played; a pending `autoPlay` starts it
    /// first. Failures of the queue are ignored, but it is fatal if the queue cannot report whether
    /// it runs.
    void onAudioStreamFlowEnd() override;

 private:
    UpstreamLink upstream_;
    std::unique_ptr<detail::PlaybackSinkImpl> impl_;
};

}  // namespace zav
