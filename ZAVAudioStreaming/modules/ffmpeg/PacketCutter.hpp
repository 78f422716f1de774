#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FfmpegObjects.hpp"

namespace zav::detail {

/// Finds the packets in a stream of bytes that nobody described. By their constant size; or, for
/// MPEG layers 1 to 3, FLAC, AC-3, and AAC when the stream begins like an ADTS header, by parsing;
/// both wherever the stream is cut into pieces. Any other piece is one packet.
class PacketCutter {
 public:
    using Take = std::function<void(std::span<const std::byte> packet)>;

    /// `constantSize` is in bytes; 0 when packets vary in size.
    PacketCutter(AVCodecID codec, std::uint32_t constantSize)
        : codec_(codec), constantSize_(constantSize) {}

    /// Hands out the packets that `bytes` complete. Parsed ones can be some packets late, until
    /// those behind them prove them right.
    void cut(std::span<const std::byte> bytes, const Take& take);

    /// The stream ends: hands out the packets that wait. A new stream can follow.
    void finish(const Take& take);

    /// Forgets the stream so far.
    void reset();

 private:
    void startParser();
    void cutBySize(std::span<const std::byte> bytes, const Take& take);
    void parse(std::span<const std::byte> bytes, const Take& take);
    std::size_t parseOnce(const std::uint8_t* bytes, std::size_t size, const Take& take);

    AVCodecID codec_;
    std::uint32_t constantSize_;
    std::vector<std::byte> remainder_;  // less than a packet of constant size
    bool hasBegun_ = false;
    CodecContext context_;       // the parser's own: it notes there what it finds
    Parser parser_;              // null when the stream is not parsed
    std::size_t heldBytes_ = 0;  // taken by the parser since it handed out a packet, at most
};

}  // namespace zav::detail
