#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"

struct OpusDecoder;

namespace zav {

/// Turns Opus packets of at most 60 ms into 16-bit linear PCM in the machine's byte order. The PCM
/// has the rate and the channels of the upstream's format. libopus converts packets of another rate
/// or another number of channels. No other field of the format is read.
///
/// Threads: see `OpusCoding`.
class ZAV_EXPORT OpusDecoder : public OpusCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` if the upstream is not Opus or fails
    /// `OpusCoding`'s checks. Fatal if libopus cannot make the codec ("Creating opus codec
    /// failed").
    OpusDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~OpusDecoder() override;

    /// Decodes `packetNum` packets and passes on their PCM as one chunk. The `packetNum` of that
    /// chunk is the number of frames. The node also passes on a chunk without packets. Without
    /// descriptions, the node cuts the chunk into `packetNum` equal parts and ignores the
    /// remainder. So a chunk of one packet needs no description. An empty packet means a lost
    /// packet. libopus conceals the loss.
    ///
    /// Precondition: every description lies within `size` bytes. The node does not check this.
    ///
    /// Errors: fatal if libopus refuses a packet. The text is the same as the encoder's: "Encoding
    /// failed: " and a reason ("Not enough bytes allocated in the buffer" for a packet of more than
    /// 60 ms). Fatal if a packet has 2 GiB or more, or if the upstream's format has changed and the
    /// PCM no longer fits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    struct Destroy {
        void operator()(::OpusDecoder* codec) const noexcept;
    };

    std::unique_ptr<::OpusDecoder, Destroy> codec_;
};

}  // namespace zav
