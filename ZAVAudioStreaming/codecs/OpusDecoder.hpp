#pragma once

#include <cstdint>
#include <memory>

#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"

struct OpusDecoder;

namespace zav {

/// Turns Opus packets of at most 60 ms into 16-bit linear PCM in the machine's byte order, at the
/// rate and with the channels of the upstream's format; libopus converts whatever the packets were
/// encoded at. Looks at nothing else of that format.
///
/// Threads: see `OpusCoding`.
class ZAV_EXPORT OpusDecoder : public OpusCoding {
 public:
    /// Throws `AudioStreamError::unacceptableData` when the upstream is not Opus or fails
    /// `OpusCoding`'s checks. A codec that libopus cannot make is the fatal stop "Creating opus
    /// codec failed".
    OpusDecoder(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream);
    ~OpusDecoder() override;

    /// Decodes `packetNum` packets and passes their PCM on as one chunk, with its frames as
    /// `packetNum`; also when there is none. Without descriptions the chunk is cut into `packetNum`
    /// equal parts (the remainder is ignored): one packet a chunk needs none. libopus conceals an
    /// empty packet as a lost one.
    ///
    /// Precondition: every description lies within `size` bytes. The node does not compare them:
    /// whoever makes descriptions keeps this.
    ///
    /// Errors: fatal stops for a packet that libopus refuses ("Encoding failed: " and why, in the
    /// words of the encoder; a packet of more than 60 ms lacks "bytes allocated in the buffer"),
    /// for one of 2 GiB and more, and for an upstream whose format has changed so that the PCM does
    /// not fit.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;

 private:
    struct Destroy {
        void operator()(::OpusDecoder* codec) const noexcept;
    };

    std::unique_ptr<::OpusDecoder, Destroy> codec_;
};

}  // namespace zav
