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

/// Turns linear PCM into Opus packets of 60 ms. Uses libopus's defaults for audio, for example a
/// variable bit rate. The samples must be signed 16-bit integers in the machine's byte order. The
/// node does not check this, and other samples become noise. Takes chunks of any size. Passes on
/// each packet alone: every target receives 1 to 3828 bytes, `packetNum` 1 and no packet
/// descriptions. All targets receive a packet before any of them receives the next one.
///
/// The bytes of an incomplete packet are saved for the next chunk and dropped at flow end. A chunk
/// that is too short to complete the saved packet is added to the saved bytes.
///
/// The encoder keeps saved bytes until a later chunk leaves bytes over, or until the flow ends. A
/// chunk may complete the saved packet and then end exactly on a packet boundary. The saved bytes
/// stay in this case, and the encoder puts them in front of the next chunk again: this audio is
/// heard twice. Chunks of whole packets never leave bytes over. A `FrameAligner` makes such chunks.
///
/// Prints a diagnostics line for each packet that needed no saved bytes: "Succeed opus encoding to
/// N bytes".
///
/// Threads: see `OpusCoding`.
class ZAV_EXPORT OpusEncoder : public OpusCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` if the upstream is not linear PCM or fails
    /// `OpusCoding`'s checks. Fatal if libopus cannot make the codec ("Creating opus codec
    /// failed").
    OpusEncoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~OpusEncoder() override;

    /// PCM bytes that wait for the rest of their packet.
    const std::optional<std::vector<std::byte>>& partialFrameBytes() const noexcept {
        return partialFrameBytes_;
    }

    /// Encodes `size` bytes of PCM; `packetNum` and `packetDescriptions` are ignored. Fatal if
    /// libopus refuses a packet. The text then contains libopus's reason. Fatal if the upstream's
    /// format has changed and a packet needs more PCM than its chunk has.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    struct Destroy {
        void operator()(::OpusEncoder* codec) const noexcept;
    };

    enum class Report { nothing, size };

    /// Encodes the PCM of one packet and passes the packet on. `pcm` must be aligned for its
    /// samples.
    void encodePacket(std::span<const std::byte> pcm, Report report);

    std::unique_ptr<::OpusEncoder, Destroy> codec_;
    std::optional<std::vector<std::byte>> partialFrameBytes_;
};

}  // namespace zav
