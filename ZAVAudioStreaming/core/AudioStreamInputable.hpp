#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A node that consumes a stream. Its upstream calls flow start, then passes any number of chunks,
/// then calls flow end. Several flows may follow each other.
///
/// Nodes live in `std::shared_ptr`. `makeNode` makes them and registers them with their upstream.
/// An upstream holds its targets strongly. A target holds its upstream weakly. The application
/// keeps the source alive, and the source keeps the graph alive.
///
/// Threads: all calls of one graph come from the thread that drives its source, one at a time.
class ZAV_EXPORT AudioStreamInputable {
 public:
    virtual ~AudioStreamInputable() = default;

    AudioStreamInputable(const AudioStreamInputable&) = delete;
    AudioStreamInputable& operator=(const AudioStreamInputable&) = delete;

    /// The upstream's current `outDataFormat`. Nodes do not cache it. Fatal if the upstream is
    /// gone.
    virtual AudioStreamBasicDescription inDataFormat() const = 0;

    /// A stream is about to start.
    virtual void onAudioStreamFlowStart() = 0;

    /// Takes one chunk of the stream. Called between flow start and flow end.
    ///
    /// bytes               raw audio in `inDataFormat`; borrowed, valid only during the call
    /// size                length of `bytes`, in bytes
    /// packetNum           packets in the chunk: frames for PCM, SBC frames for SBC, packets for
    ///                     Opus. An `SBCDecoder` passes the number of SBC frames, although its
    ///                     bytes are PCM.
    /// packetDescriptions  `packetNum` records, or null for packets of constant size; borrowed
    ///
    /// Callback: may add targets to the graph. Must not destroy a node of the graph.
    /// Errors:   throws nothing of its own. Fatal if the node cannot take the audio.
    virtual void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                              const AudioStreamPacketDescription* packetDescriptions) = 0;

    /// The stream has ended. No chunk follows until the next flow start.
    virtual void onAudioStreamFlowEnd() = 0;

 protected:
    AudioStreamInputable() = default;
};

}  // namespace zav
