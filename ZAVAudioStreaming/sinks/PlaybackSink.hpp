#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"
#include "ZAVAudioStreaming/platform/OwnedAudioQueue.hpp"

namespace zav {

/// Plays what it receives, in the upstream's format of the moment when it was made: PCM, or what
/// the audio queue can decode. Chunks are copied into queue buffers, and a buffer goes to the queue
/// when it is at least half full; what stays below that waits for the next chunk or the flow end.
///
/// Nothing plays until `play`, or until `autoPlay` has let enough audio gather. A queue that runs
/// dry is paused, and goes on with the next buffer that it is given. At flow end what is left is
/// played and the queue stops by itself. When the device goes away the queue stops as well: chunks
/// then gather in memory until the application plays again. A sink that was `paused` at a stop
/// needs no call: its next buffer starts the queue.
///
/// Every buffer is enqueued with the packet descriptions of the chunk that filled it up, unchanged.
/// For packets of varying size, push chunks that fill one buffer each; packets of constant size do
/// not need descriptions.
///
/// This is the one node that is registered before it can fail. When the queue cannot be made,
/// `makeNode` throws and the failed sink stays with its upstream: it takes no audio, and does and
/// prints nothing. Its other operations must not be called; they have no queue.
///
/// Threads: chunks, flow start and flow end on the thread that drives the graph. All else may be
/// called from any thread, also by `audioDataAcquireHandler`; the application calls `play`,
/// `autoPlay` and `stop` one at a time. The last reference may be dropped anywhere.
class ZAV_EXPORT PlaybackSink : public AudioStreamInputable {
 public:
    PlaybackSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    /// Called by `makeNode`, which throws what it throws: `AudioQueueError::failure` with the
    /// status of a queue that cannot be made.
    void onMade(NodeKey, std::weak_ptr<PlaybackSink> self);

    /// Starts playing, also when nothing has been received yet.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status. A pending `autoPlay` is a
    /// fatal stop; `stop` takes it back.
    void play();

    /// Starts playing as soon as `delayInSeconds` of audio wait in the queue, which is looked at
    /// when a buffer is enqueued, or at flow end. For compressed formats, whose bytes tell no
    /// time, that is the first buffer. A sink that is still `paused` starts with its next buffer
    /// all the same, and looks at the schedule with the one after. A queue that runs is a fatal
    /// stop, as is one that does not tell.
    void autoPlay(double delayInSeconds);

    /// Stops at once, and takes a pending `autoPlay` back. What was not played is dropped.
    ///
    /// Errors: throws `AudioQueueError::failure` with the queue's status.
    void stop();

    /// Whether the queue runs, also while it is paused. One that does not tell is a fatal stop.
    bool isPlaying() const;
    /// Whether the queue has stopped with all played that it was given for its last run or since:
    /// what tells the end of a flow from the loss of the device, also when that goes while the sink
    /// is paused. A queue that does not tell is a fatal stop.
    bool hasPlayedAll() const;
    /// Seconds played so far. A queue that does not tell is a fatal stop.
    double timeStamp() const;

    /// Bytes of the buffers that are allocated from now on. Unless it is set: half a second of
    /// packets of the largest size, 16 KiB to 320 KiB, found at the first need. A product that does
    /// not fit 32 bits is a fatal stop.
    std::uint32_t queueBufferSize();
    void setQueueBufferSize(std::uint32_t sizeInBytes);
    /// Packets of the largest size that fit in a buffer. A queue that does not tell their size, or
    /// says 0, is a fatal stop.
    std::uint32_t maxPacketNumForBuffer();

    /// Is called whenever a buffer has been played, to push more: on the dispatch queue's thread,
    /// while no lock of the sink is held. It may call the sink, drop it, and throw anything, which
    /// is ignored.
    std::function<void()> audioDataAcquireHandler() const;
    void setAudioDataAcquireHandler(std::function<void()> handler);

    /// Whether the sink has paused the queue because all audio was played. Stays set when the rest
    /// of a flow is played out at its end, and through `play` and `stop`.
    bool paused() const;
    /// What `autoPlay` waits for, in seconds.
    std::optional<double> delayPlaySchedule() const;
    /// Buffers that the queue has allocated so far; they are used again and again.
    std::size_t allocatedBufferCount() const;
    /// Those of them that are not enqueued. The first one may be partly filled.
    std::size_t idleBufferCount() const;
    /// The queue, to ask it for more or set its magic cookie. Belongs to the sink.
    AudioQueueRef audioQueueRef() const noexcept { return queue_.get(); }

    /// The node that this one was made on. One that is gone is a fatal stop.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    void onAudioStreamFlowStart() override;
    /// Copies a chunk into queue buffers. When the queue refuses a buffer, the rest of the chunk is
    /// dropped silently and the buffer is tried again with the next one.
    ///
    /// Fatal stops: "Can not allocate buffer"; more than 32 bits of packets with descriptions;
    /// bytes per second, or bytes that wait for `autoPlay`, of more than 32 bits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    /// Enqueues what is left and has the queue stop when it is played; a pending `autoPlay` starts
    /// it for that. Failures of the queue are ignored, except that one which does not tell whether
    /// it runs is a fatal stop.
    void onAudioStreamFlowEnd() override;

 private:
    void takeBack(AudioQueueBuffer& buffer);
    AudioQueueBuffer& bufferToFill(std::uint32_t sizeInBytes);
    void startWhenDue();
    void enqueueRest();
    void dropFirstIdle();
    void setPaused(bool paused);
    std::size_t enqueuedBufferCount() const {
        return allocatedBuffers_.size() - idleBuffers_.size();
    }
    std::uint32_t enqueuedByteCount() const;

    UpstreamLink upstream_;

    /// One event at a time: what is decided on the buffers, what the queue is told then, and the
    /// lines about it, so that these come in the order of the events and the queue is never paused
    /// with audio in it. The queue's functions call nobody back.
    std::mutex events_;
    /// For what follows; no line is printed under it. Taken after `events_`.
    mutable std::mutex mutex_;
    std::optional<std::uint32_t> queueBufferSize_;
    std::shared_ptr<const std::function<void()>> audioDataAcquireHandler_;
    std::optional<double> delayPlaySchedule_;
    // These change under both locks, and are read under either.
    bool paused_ = false;
    std::vector<AudioQueueBufferRef> allocatedBuffers_;
    std::vector<AudioQueueBufferRef> idleBuffers_;

    OwnedAudioQueue queue_;  // last, so that no callback finds the rest gone
};

}  // namespace zav
