#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// What stands between a queue's stream and the PCM of its device, when the two are not the same.
/// Throws std::bad_alloc, and `StatusFailure` where that is said.
///
/// Threads: one at a time.
namespace zav::detail {

/// Turns the stream of an output queue into PCM.
class QueueDecoder {
 public:
    virtual ~QueueDecoder() = default;

    /// The PCM that comes out, in a form that a device takes; the same from the making on, whatever
    /// the cookie and the packets turn out to hold. Its rate can differ from the record's.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// Bytes that no packet of the stream exceeds. A cookie can make it smaller or larger.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// What the decoder needs beside the format, before the first packet. Throws
    /// kAudioQueueErr_InvalidPropertyValue for bytes that are no cookie of the format and
    /// kAudioQueueErr_InvalidProperty when the format has none; the decoder is then as it was.
    virtual void setMagicCookie(std::span<const std::byte> cookie) = 0;

    /// Decodes the packets in `bytes` and appends their PCM, whole frames, to `pcm`, the priming of
    /// the codec included. `descriptions` lie inside `bytes`; when there are none, packets are
    /// found as `AudioQueueEnqueueBuffer` tells, and the PCM of the last ones can come with the
    /// bytes that follow. What cannot be decoded is left out, and so is everything while a cookie
    /// is missing that the format cannot do without.
    virtual void decode(std::span<const std::byte> bytes,
                        std::span<const AudioStreamPacketDescription> descriptions,
                        std::vector<std::byte>& pcm) = 0;

    /// The stream ends here: appends what the decoder still holds. It goes on after all if `decode`
    /// follows and not `reset`: with the bytes of a begun PCM frame, with the next whole packet.
    virtual void finish(std::vector<std::byte>& pcm) = 0;

    /// Forgets the stream so far; another one follows.
    virtual void reset() = 0;
};

/// Packets one behind the other.
struct EncodedPackets {
    std::vector<std::byte> bytes;
    /// Places in `bytes`. Empty when packets are of constant size. One that tells its frames holds
    /// another number than the format says: a short one at the end.
    std::vector<AudioStreamPacketDescription> descriptions;
};

/// Turns captured PCM into the stream of an input queue.
class QueueEncoder {
 public:
    virtual ~QueueEncoder() = default;

    /// The PCM that goes in, in a form that a device gives.
    virtual AudioStreamBasicDescription pcmFormat() const = 0;

    /// The stream's format, with what the encoder adds to it (frames in a packet, for example).
    virtual AudioStreamBasicDescription streamFormat() const = 0;

    /// Bytes that no packet of the stream exceeds.
    virtual std::uint32_t maximumPacketSize() const = 0;

    /// Bare, as files hand it out; empty where the format has none. It is there from the making on,
    /// and may be completed by `finish`, for the stream that ends there.
    virtual std::span<const std::byte> magicCookie() const = 0;

    /// Encodes whole frames and appends the packets that are complete. `pcm` is kept as far as it
    /// does not fill a packet. `packets` may hold some already.
    virtual void encode(std::span<const std::byte> pcm, EncodedPackets& packets) = 0;

    /// Capture ends here: appends what is left, the last packet filled up with silence where the
    /// codec cannot make one so short. A new stream can follow.
    virtual void finish(EncodedPackets& packets) = 0;
};

}  // namespace zav::detail
