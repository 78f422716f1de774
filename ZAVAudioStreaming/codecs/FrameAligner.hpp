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

/// Passes linear PCM on in whole pieces of `bytesPerChunk`, the PCM of one codec frame, as many as
/// it has at a time and as one chunk; what is over waits for the next chunk. Put it between a
/// source whose chunks are cut elsewhere and an encoder:
///
///     auto source = zav::makeNode<zav::RecordSource>(format);
///     auto aligner = zav::makeNode<zav::FrameAligner>(
///         source, zav::FrameAligner::bytesPerSbcFrame(*configuration));
///     auto encoder = zav::makeNode<zav::SBCEncoder>(aligner, configuration);
///
/// An encoder keeps the bytes that it has saved when a chunk ends exactly on a frame boundary, and
/// encodes them again. With the half-second buffers of a `RecordSource` (16000 bytes at 16 kHz
/// mono, SBC frames of 256) that is a click twice a second. An encoder behind an aligner never
/// saves anything: every byte is encoded once.
///
/// A chunk that is aligned already passes without being copied while nothing is held.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT FrameAligner : public AudioStreamInputable, public AudioStreamOutputable {
 public:
    /// What becomes of the bytes that wait when the flow ends.
    enum class AtFlowEnd {
        dropRest,        ///< less than a frame of audio is lost
        padWithSilence,  ///< a last frame is filled up with silence and passed on
    };

    /// Errors: throws `AudioStreamError::unacceptableData` when the upstream is not linear PCM, or
    /// unsigned with samples that do not fill their bytes (whose silence nobody knows), or when
    /// `bytesPerChunk` is 0 or no whole number of frames.
    FrameAligner(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
                 std::size_t bytesPerChunk, AtFlowEnd atFlowEnd = AtFlowEnd::dropRest);

    /// Bytes of PCM in one SBC frame. Makes the configuration's codec state, as the encoder does:
    /// set its fields before.
    static std::size_t bytesPerSbcFrame(SBCCoding::SBCConfiguration& configuration);
    /// Bytes of PCM in one Opus packet of 60 ms. A product out of range is a fatal stop.
    static std::size_t bytesPerOpusPacket(const AudioStreamBasicDescription& pcm);

    /// Bytes that wait for the rest of their piece.
    std::size_t heldByteCount() const noexcept { return held_.size(); }

    /// The node that this one was made on. One that is gone is a fatal stop.
    std::shared_ptr<AudioStreamOutputable> upstream() const { return upstream_.get(); }
    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }
    /// The upstream's. The size of a frame is taken from it once, when the node is made.
    AudioStreamBasicDescription outDataFormat() const override { return upstream_.dataFormat(); }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

    void onAudioStreamFlowStart() override;
    /// `packetNum` is ignored; the chunks that are passed on count frames.
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
