#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

namespace zav {

/// Turns whole SBC frames into 16-bit linear PCM. The decoder makes its configuration from the
/// upstream's format. For two channels, it always chooses plain stereo. libsbc reads the mode from
/// each frame, but every frame must have the configuration's `frameLen`. Fatal if the length
/// differs. Joint stereo and dual channel usually have another length.
///
/// Threads: see `SBCCoding`.
class ZAV_EXPORT SBCDecoder : public SBCCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` if the upstream is not SBC or fails
    /// `SBCCoding`'s checks.
    SBCDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);

    /// Always a fatal stop: the decoder takes no configuration.
    SBCDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
               const std::shared_ptr<SBCConfiguration>& configuration);

    /// Decodes `packetNum` SBC frames and passes on their PCM as one chunk. The `packetNum` of that
    /// chunk is also the number of SBC frames. Ignores `packetDescriptions`.
    ///
    /// Precondition: `bytes` holds `packetNum` frames. The node does not compare this with `size`.
    ///
    /// Errors: fatal if `size` is not a multiple of `frameLen` ("Not integral multiple..."). Fatal
    /// if libsbc cannot decode a frame ("Decoding failed"); no frame of the chunk is passed on
    /// then.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
};

}  // namespace zav
