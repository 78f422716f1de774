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

/// A whole packet of an Ogg stream.
struct OggPacket {
    static constexpr std::size_t kStartSize = 16;

    std::uint64_t offset;              ///< of its first byte in the file
    std::uint32_t size;                ///< bytes; an empty packet can end a stream
    std::span<const std::byte> start;  ///< its first bytes, at most `kStartSize`
    /// The granule position of the page on which the packet ends. Only the last packet that ends on
    /// a page has one.
    std::optional<std::int64_t> granule;
};

/// The pages of one logical stream in an Ogg file (RFC 3533).
///
/// A packet can begin anywhere in a page and continue on the next one. libavformat's index gives
/// only the position of the page, so packets are located here.
class OggPages {
 public:
    /// Walks through one stream and calls `take` for every whole packet. The stream is the first
    /// one in the file whose first page begins with `firstBytes`. The walk ends when `take` returns
    /// false, at the end of the stream, at the start of a stream that follows, or at the last whole
    /// page.
    void walk(const FileHandle& file, std::span<const std::byte> firstBytes,
              const std::function<bool(const OggPacket&)>& take);

    /// True if the walk ended because another stream follows this one.
    bool isChained() const noexcept { return isChained_; }

    /// Reads `size` bytes of this stream's packets, starting at `offset` in the file. Leaves out
    /// the page headers between the packets. Returns the number of bytes read, which is less than
    /// `size` if the file was cut after the walk.
    std::size_t read(const FileHandle& file, std::uint64_t offset, void* buffer,
                     std::size_t size) const;

 private:
    std::vector<std::uint64_t> pageOffsets_;
    bool isChained_ = false;
};

}  // namespace zav::detail
