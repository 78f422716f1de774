#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"

namespace zav {

/// Cuts linear PCM into pieces of `bytesPerChunk` bytes. One piece is the PCM of one codec frame.
/// The aligner passes on all whole pieces as one chunk. The bytes of an incomplete piece wait for
/// the next chunk. If the chunks of a source do not end on frame boundaries, put an aligner between
/// the source and the encoder:
///
///     auto source = zav::makeNode<zav::RecordSource>(format);
///     auto aligner = zav::makeNode<zav::FrameAligner>(
///         source, zav::FrameAligner::bytesPerSbcFrame(*configuration));
///     auto encoder = zav::makeNode<zav::SBCEncoder>(aligner, configuration);
///
/// Without an aligner, an encoder repeats audio: it encodes its saved bytes again after a chunk
/// that ends exactly on a frame boundary. The half-second buffers of a `RecordSource` then cause a
/// click twice a second (16000 bytes at 16 kHz mono, SBC frames of 256 bytes). An encoder behind an
/// aligner saves nothing, so every byte is encoded once.
///
/// If no bytes wait, the aligner passes on the whole pieces of a chunk without a copy.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT FrameAligner : public AudioStreamInputable, public AudioStreamOutputable {
 public:
    /// What happens to the waiting bytes at flow end.
    enum class AtFlowEnd {
        dropRest,        ///< the bytes are lost (less than one piece)
        padWithSilence,  ///< silence fills up the last piece; it is passed on
    };

    /// Errors: throws `AudioStreamError::unacceptableData` if the upstream is not linear PCM, if it
    /// has unsigned samples that do not fill their bytes (their silence value is unknown), or if
    /// `bytesPerChunk` is 0 or not a whole number of frames.
    FrameAligner(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                 std::size_t bytesPerChunk, AtFlowEnd atFlowEnd = AtFlowEnd::dropRest);

    /// Bytes of PCM in one SBC frame. Set the fields of `configuration` before this call: like an
    /// encoder, it makes the codec state from them.
    static std::size_t bytesPerSbcFrame(SBCCoding::SBCConfiguration& configuration);
    /// Bytes of PCM in one Opus packet of 60 ms. Fatal if the number does not fit.
    static std::size_t bytesPerOpusPacket(const AudioStreamBasicDescription& pcm);

    /// Number of bytes that wait for the rest of their piece.
    std::size_t heldByteCount() const noexcept { return held_.size(); }

    /// The node that this one was made on. Fatal if it is gone.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }
    /// The upstream's current format. Only the constructor reads the frame size.
    AudioStreamBasicDescription outDataFormat() const override { return upstream_.dataFormat(); }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

    void onAudioStreamFlowStart() override;
    /// Ignores `packetNum`. Chunks that the aligner passes on have the number of frames as
    /// `packetNum`.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    std::size_t passPieces(std::span<const std::byte> pcm) const;

    UpstreamLink upstream_;
    StreamTargets downstreams_;
    std::size_t bytesPerChunk_;
    AtFlowEnd atFlowEnd_;
    std::vector<std::byte> silentFrame_;
    std::vector<std::byte> held_;  ///< less than one piece, between calls
};

}  // namespace zav
