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
/// `codeSize` bytes into one frame of `frameLen` bytes, and passes on all frames of a chunk as one
/// chunk. Passes on a chunk even if it has no frames.
///
/// The bytes of an incomplete frame are saved for the next chunk and dropped at flow end. A chunk
/// that is too short to complete the saved frame is added to the saved bytes.
///
/// The encoder keeps saved bytes until a later chunk leaves bytes over, or until the flow ends. A
/// chunk may complete the saved frame and then end exactly on a frame boundary. The saved bytes
/// stay in this case, and the encoder puts them in front of the next chunk again: this audio is
/// heard twice. Chunks of whole frames never leave bytes over. A `FrameAligner` makes such chunks.
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
    /// limit. All bytes of the frames are zero then.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    std::vector<std::byte>& savedBytes();

    std::optional<std::vector<std::byte>> partialFrameBytes_;
};

}  // namespace zav
