#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/SBCCoding.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"

namespace zav {

/// Turns whole SBC frames into 16-bit linear PCM. Its configuration comes from the upstream's
/// format, so it is made on the upstream alone. A two-channel format always means plain stereo
/// here; libsbc takes the mode from each frame, but frames of another length than the
/// configuration's `frameLen` (joint stereo and dual channel, mostly) end the process.
///
/// Threads: see `SBCCoding`.
class ZAV_EXPORT SBCDecoder : public SBCCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` when the upstream is not SBC or fails
    /// `SBCCoding`'s checks.
    SBCDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);

    /// Not offered by the decoder: a fatal stop that says so.
    SBCDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
               const std::shared_ptr<SBCConfiguration>& configuration);

    /// Decodes `packetNum` SBC frames and passes their PCM on as one chunk, whose `packetNum` still
    /// counts SBC frames. `packetDescriptions` is ignored.
    ///
    /// Precondition: `bytes` holds `packetNum` frames. The count is not compared with `size`.
    /// Errors: fatal stops for a `size` that is not a multiple of `frameLen` ("Not integral
    /// multiple...") and for a frame that libsbc cannot decode ("Decoding failed"; what was decoded
    /// before it is not passed on).
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
};

}  // namespace zav
