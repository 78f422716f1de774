#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"

struct OpusEncoder;

namespace zav {

/// Turns linear PCM into Opus packets of 60 ms, with libopus's defaults for audio (its variable bit
/// rate among them). The samples must be signed 16-bit integers in the machine's byte order, which
/// the node does not check: anything else comes out as noise. Takes chunks of any size and passes
/// each packet on by itself: every target gets `packetNum` 1, no packet descriptions and 1 to 3828
/// bytes, and all targets get a packet before any gets the next.
///
/// What does not fill a packet is saved for the next chunk and dropped at flow end. Saved bytes
/// stay saved until a later chunk leaves bytes over again, or the flow ends: a chunk that completes
/// the saved packet and then ends exactly on a packet boundary leaves them in place, and the next
/// chunk begins with them once more, so that this audio is heard twice. Chunks of whole packets
/// never leave anything over. A chunk that is too short to complete the saved packet is added to
/// the saved bytes.
///
/// Prints a diagnostics line for each packet that needed no saved bytes: "Succeed opus encoding to
/// N bytes".
///
/// Threads: see `OpusCoding`.
class ZAV_EXPORT OpusEncoder : public OpusCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` when the upstream is not linear PCM or fails
    /// `OpusCoding`'s checks. A codec that libopus cannot make is the fatal stop "Creating opus
    /// codec failed".
    OpusEncoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~OpusEncoder() override;

    /// PCM bytes that wait for the rest of their packet.
    const std::optional<std::vector<std::byte>>& partialFrameBytes() const noexcept {
        return partialFrameBytes_;
    }

    /// Encodes `size` bytes of PCM; `packetNum` and `packetDescriptions` are ignored. A packet that
    /// libopus refuses is a fatal stop that says why, as is an upstream whose format has changed
    /// so that a packet lacks PCM.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    struct Destroy {
        void operator()(::OpusEncoder* codec) const noexcept;
    };

    enum class Report { nothing, size };

    /// Encodes one packet's PCM, which is aligned for its samples, and passes the packet on.
    void encodePacket(std::span<const std::byte> pcm, Report report);

    std::unique_ptr<::OpusEncoder, Destroy> codec_;
    std::optional<std::vector<std::byte>> partialFrameBytes_;
};

}  // namespace zav
