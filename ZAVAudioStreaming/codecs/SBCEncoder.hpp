#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

namespace zav {

/// Turns linear PCM into SBC frames. The samples must be signed 16-bit integers, which the node
/// does not check: anything else comes out as noise. Takes chunks of any size, encodes every whole
/// block of `codeSize` bytes into one frame of `frameLen` bytes, and passes a chunk's frames on as
/// one buffer, also when there are none. What does not fill a frame is saved for the next chunk and
/// dropped at flow end.
///
/// Saved bytes stay saved until a later chunk leaves bytes over again, or the flow ends: a chunk
/// that completes the saved frame and then ends exactly on a frame boundary leaves them in place,
/// and the next chunk begins with them once more, so that this audio is heard twice. Chunks of
/// whole frames never leave anything over. A chunk that is too short to complete the saved frame is
/// added to the saved bytes, and a chunk of no frames is passed on.
///
/// Threads: see `SBCCoding`.
class ZAV_EXPORT SBCEncoder : public SBCCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` when the upstream is not linear PCM or fails
    /// `SBCCoding`'s checks. Makes the configuration's codec state. An upstream format with no
    /// channels or less than 8 bits per channel is a fatal stop.
    SBCEncoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
               std::shared_ptr<SBCConfiguration> configuration);

    /// PCM bytes that wait for the rest of their frame.
    const std::optional<std::vector<std::byte>>& partialFrameBytes() const noexcept {
        return partialFrameBytes_;
    }

    /// Encodes `size` bytes of PCM; `packetNum` and `packetDescriptions` are ignored. A frame that
    /// libsbc refuses is the fatal stop "Encoding failed". A bitpool above its limit is not refused
    /// by libsbc: such frames are all zero bytes.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    void onAudioStreamFlowEnd() override;

 private:
    std::vector<std::byte>& savedBytes();

    std::optional<std::vector<std::byte>> partialFrameBytes_;
};

}  // namespace zav
