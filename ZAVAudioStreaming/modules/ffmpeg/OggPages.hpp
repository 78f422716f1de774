#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/modules/ffmpeg/FileWindow.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// One logical stream of an Ogg file (RFC 3533): the first of the file whose first packet begins
/// as asked for. Packets can begin and end anywhere in a page and go on in the next one, which is
/// why they have no place of their own in libavformat's index.
class OggPages {
 public:
    static constexpr std::size_t kPacketStart = 16;

    struct Packet {
        std::uint64_t offset;              ///< of its first byte in the file
        std::uint32_t size;                ///< bytes; an empty packet can end a stream
        std::span<const std::byte> start;  ///< its first bytes, `kPacketStart` at most
        /// The granule position of its page if this is the last packet that ends there.
        std::optional<std::int64_t> granule;
    };

    /// Walks through all pages of the stream up to its end, the start of another in its place or
    /// the last whole page, and calls `take` for every whole packet, until that says no.
    void walk(const FileHandle& file, std::span<const std::byte> firstBytes,
              const std::function<bool(const Packet&)>& take);

    /// Whether the walk ended because another stream follows in this one's place.
    bool isChained() const noexcept { return isChained_; }

    /// Reads `size` bytes of packets of this stream, as they follow each other from the file's
    /// `offset` on. Returns fewer where pages have disappeared since the walk.
    std::size_t read(const FileHandle& file, std::uint64_t offset, void* buffer,
                     std::size_t size) const;

 private:
    std::vector<std::uint64_t> pageOffsets_;
    bool isChained_ = false;
};

}  // namespace zav::detail
