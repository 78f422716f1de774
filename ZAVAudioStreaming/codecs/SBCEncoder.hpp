#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

namespace zav {

/// Turns linear PCM into SBC frames. The samples must be signed 16-bit integers. The node does not
/// check this, and other samples become noise. Takes chunks of any size. Encodes each block of
/// `codeSize` bytes into one frame of `frameLen` bytes, and passes all frames of a chunk on as one
/// chunk, even if there are none.
///
/// The bytes of an incomplete frame are saved for the next chunk and dropped at flow end. A chunk
/// that is too short to complete the saved frame is added to the saved bytes.
///
/// Saved bytes stay saved until a later chunk leaves bytes over, or the flow ends. If a chunk
/// completes the saved frame and then ends exactly on a frame boundary, they stay, and the next
/// chunk begins with them again: this audio is heard twice. Chunks of whole frames never leave
/// bytes over; a `FrameAligner` makes them.
///
/// Threads: see `SBCCoding`.
class ZAV_EXPORT SBCEncoder : public SBCCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` if the upstream is not linear PCM or fails
    /// `SBCCoding`'s checks. Makes the configuration's codec state. Fatal if the upstream's format
    /// has less than 8 bits per channel.
    SBCEncoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
               std::shared_ptr<SBCConfiguration> configuration);

    /// PCM bytes that wait for the rest of their frame.
    const std::optional<std::vector<std::byte>>& partialFrameBytes() const noexcept {
        return partialFrameBytes_;
    }

    /// Encodes `size` bytes of PCM; `packetNum` and `packetDescriptions` are ignored. Fatal if
    /// libsbc refuses a frame ("Encoding failed"). libsbc does not refuse a bitpool above its
    /// limit; the frames are then all zero bytes.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    std::vector<std::byte>& savedBytes();

    std::optional<std::vector<std::byte>> partialFrameBytes_;
};

}  // namespace zav
