#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// Conversion between the stream of a queue and the PCM of its device. Functions throw
/// std::bad_alloc, and StatusFailure where their comment says so.
///
/// Threads: one at a time.
namespace zav::detail {

/// Turns the stream of an output queue into PCM.
class QueueDecoder {
 public:
    virtual ~QueueDecoder() = default;

    /// The PCM that `decode` returns, in a format that devices take. It never changes, whatever the
    /// cookie and the packets contain. Its rate can differ from the rate of the stream's record.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// Upper limit for the bytes of a packet. A cookie can change it.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// Sets the decoder's configuration, before the first packet. Throws
    /// kAudioQueueErr_InvalidPropertyValue for bytes that are no cookie of the format and
    /// kAudioQueueErr_InvalidProperty when the format has none; the decoder is then unchanged.
    virtual void setMagicCookie(std::span<const std::byte> cookie) = 0;

    /// Decodes the packets in `bytes` and appends their PCM, whole frames, to `pcm`, including the
    /// codec's priming. `descriptions` lie inside `bytes`. Without descriptions, packets are found
    /// as `AudioQueueEnqueueBuffer` describes, and the PCM of the last ones can come with later
    /// bytes. Packets that cannot be decoded are left out; so are all packets while a necessary
    /// cookie is missing.
    virtual void decode(std::span<const std::byte> bytes,
                        std::span<const AudioStreamPacketDescription> descriptions,
                        std::vector<std::byte>& pcm) = 0;

    /// Ends the stream: appends the audio that the decoder still holds. If `decode` follows without
    /// `reset`, the stream goes on: PCM with the rest of a begun frame, other formats with the next
    /// whole packet.
    virtual void finish(std::vector<std::byte>& pcm) = 0;

    /// Forgets the stream. Another one follows.
    virtual void reset() = 0;
};

/// Consecutive packets.
struct EncodedPackets {
    std::vector<std::byte> bytes;
    /// Places in `bytes`; empty if packets are of constant size. Only a packet whose number of
    /// frames differs from the format's, a short one at the end, has the number set.
    std::vector<AudioStreamPacketDescription> descriptions;
};

/// Turns captured PCM into the stream of an input queue.
class QueueEncoder {
 public:
    virtual ~QueueEncoder() = default;

    /// The PCM that `encode` takes, in a format that devices deliver.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// The stream's format, with the fields that the encoder fills in (such as frames per packet).
    virtual AudioStreamBasicDescription streamFormat() const = 0;

    /// Upper limit for the bytes of a packet.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// The bare form that files return too; empty if the format has none. Available from the start.
    /// `finish` may complete it for the stream that ends there.
    virtual std::span<const std::byte> magicCookie() const = 0;

    /// Encodes whole frames and appends complete packets to `packets`. Frames that do not fill a
    /// packet are kept.
    virtual void encode(std::span<const std::byte> pcm, EncodedPackets& packets) = 0;

    /// Ends the stream: appends the rest. If the codec has no short packets, the last one is filled
    /// up with silence. A new stream can follow.
    virtual void finish(EncodedPackets& packets) = 0;
};

}  // namespace zav::detail
