#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"

namespace zav::detail {

/// Finds the packets in a stream of bytes without descriptions.
///
/// A stream of packets of constant size is cut by that size. MPEG layers 1 to 3, FLAC and AC-3 are
/// parsed. AAC is also parsed if the stream begins with an ADTS header. All these streams can
/// arrive in pieces of any size. In all other formats each piece is one packet.
class PacketCutter {
 public:
    /// Receives a packet; its bytes are valid during the call.
    using Take = std::function<void(std::span<const std::byte> packet)>;

    /// `constantSize` is in bytes; 0 if packets vary in size.
    PacketCutter(AVCodecID codec, std::uint32_t constantSize)
        : codec_(codec), constantSize_(constantSize) {}

    /// Calls `take` for the packets that `bytes` complete. A parser can hold packets back until
    /// later ones confirm them.
    void cut(std::span<const std::byte> bytes, const Take& take);

    /// Ends the stream: calls `take` for the packets that were held back. A new stream can follow.
    void finish(const Take& take);

    /// Drops the packets that were held back. A new stream can follow.
    void reset();

 private:
    void startParser();
    void cutBySize(std::span<const std::byte> bytes, const Take& take);
    void parse(std::span<const std::byte> bytes, const Take& take);
    /// Returns the number of bytes that the parser consumed. Returns `size` if the parser makes no
    /// progress.
    std::size_t parseOnce(const std::uint8_t* bytes, std::size_t size, const Take& take);

    AVCodecID codec_;
    std::uint32_t constantSize_;
    std::vector<std::byte> remainder_;  // less than a packet of constant size
    bool hasBegun_ = false;
    CodecContext context_;  // where the parser stores what it finds
    Parser parser_;         // null if the stream is not parsed
    std::size_t heldBytes_ =
        0;  // given to the parser since its last packet; it may still hold them
};

}  // namespace zav::detail
