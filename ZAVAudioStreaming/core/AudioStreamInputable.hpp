#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A node that consumes a stream. Its upstream calls flow start, then any number of chunks, then
/// flow end; a node can run through this several times.
///
/// Nodes live in `std::shared_ptr` and are made by `makeNode`, which registers them with their
/// upstream. The upstream holds them strongly; they hold it weakly, so the application keeps the
/// source, and through it the graph.
///
/// Threads: all calls of one graph come from the thread that drives its source, one at a time.
class ZAV_EXPORT AudioStreamInputable {
 public:
    virtual ~AudioStreamInputable() = default;

    AudioStreamInputable(const AudioStreamInputable&) = delete;
    AudioStreamInputable& operator=(const AudioStreamInputable&) = delete;

    /// The upstream's `outDataFormat` at this moment; nodes do not cache it. An upstream that is
    /// gone is a fatal stop.
    virtual AudioStreamBasicDescription inDataFormat() const = 0;

    /// A stream is about to start.
    virtual void onAudioStreamFlowStart() = 0;

    /// Takes one chunk of the stream. Called between flow start and flow end.
    ///
    /// bytes               raw audio in `inDataFormat`; borrowed, valid only during the call
    /// size                length of `bytes`, in bytes
    /// packetNum           packets in the chunk: frames for PCM, SBC frames for SBC, packets for
    ///                     Opus. An `SBCDecoder` hands on SBC frames as its count, though its
    ///                     bytes are PCM.
    /// packetDescriptions  `packetNum` records, or null for packets of constant size; borrowed
    ///
    /// Callback: may add targets to the graph, must not destroy a node of it.
    /// Errors:   throws nothing of its own; what a node cannot take in the middle of a stream ends
    ///           the process.
    virtual void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                              const AudioStreamPacketDescription* packetDescriptions) = 0;

    /// The stream has ended; no chunk follows until the next flow start.
    virtual void onAudioStreamFlowEnd() = 0;

 protected:
    AudioStreamInputable() = default;
};

}  // namespace zav
