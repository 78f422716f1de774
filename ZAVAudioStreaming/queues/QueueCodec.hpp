#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// Converts between the stream of a queue and the PCM of its device. Functions throw
/// std::bad_alloc. They throw StatusFailure where their comment says so.
///
/// Threads: one at a time.
namespace zav::detail {

/// Turns the stream of an output queue into PCM.
class QueueDecoder {
 public:
    virtual ~QueueDecoder() = default;

    /// Returns the format of the PCM from `decode`. Devices take this format. It never changes,
    /// whatever the cookie and the packets contain. Its rate can differ from the rate in the
    /// stream's format.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// Upper limit for the bytes of a packet. A cookie can change it.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// Sets the decoder's configuration, before the first packet. Throws
    /// kAudioQueueErr_InvalidPropertyValue if the bytes are no valid cookie of the format. Throws
    /// kAudioQueueErr_InvalidProperty if the format has no cookies. The decoder is unchanged after
    /// an error.
    virtual void setMagicCookie(std::span<const std::byte> cookie) = 0;

    /// Decodes the packets in `bytes` and appends whole frames of PCM to `pcm`, including the
    /// codec's priming. All `descriptions` must lie inside `bytes`. Without descriptions, the
    /// decoder finds packets as `AudioQueueEnqueueBuffer` describes. The PCM of the last packets
    /// can then come with later bytes. The decoder skips packets that it cannot decode. It skips
    /// all packets while a necessary cookie is missing.
    virtual void decode(std::span<const std::byte> bytes,
                        std::span<const AudioStreamPacketDescription> descriptions,
                        std::vector<std::byte>& pcm) = 0;

    /// Ends the stream and appends the audio that the decoder still holds. If `decode` follows
    /// without `reset`, the stream continues. PCM continues inside the frame that was begun. Other
    /// formats continue with the next whole packet.
    virtual void finish(std::vector<std::byte>& pcm) = 0;

    /// Forgets the stream. Another stream follows.
    virtual void reset() = 0;
};

/// Consecutive packets.
struct EncodedPackets {
    std::vector<std::byte> bytes;
    /// Positions of the packets in `bytes`. Empty if packets have a constant size. The number of
    /// frames is set only for a short packet at the end.
    std::vector<AudioStreamPacketDescription> descriptions;
};

/// Turns captured PCM into the stream of an input queue.
class QueueEncoder {
 public:
    virtual ~QueueEncoder() = default;

    /// Returns the format of the PCM that `encode` takes. Devices deliver this format.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// Returns the stream's format, including fields that the encoder fills in (such as frames per
    /// packet).
    virtual AudioStreamBasicDescription streamFormat() const = 0;

    /// Upper limit for the bytes of a packet.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// Returns the cookie in the bare form that files return too. Empty if the format has no
    /// cookie. The cookie is available from the start. `finish` may complete it for the stream that
    /// it ends.
    virtual std::span<const std::byte> magicCookie() const = 0;

    /// Encodes whole frames and appends complete packets to `packets`. Frames that do not fill a
    /// packet are kept.
    virtual void encode(std::span<const std::byte> pcm, EncodedPackets& packets) = 0;

    /// Ends the stream and appends the rest. If the codec has no short packets, silence fills the
    /// last packet. A new stream can follow.
    virtual void finish(EncodedPackets& packets) = 0;
};

}  // namespace zav::detail
