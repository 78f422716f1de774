#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zav::detail {

/// The place of a packet.
struct PacketPlace {
    std::uint64_t offset;      ///< of its first byte in the file
    std::uint32_t size;        ///< bytes
    std::uint32_t frameCount;  ///< frames that it decodes to
};

/// The packets of a file. A day of MP3 has three million, so a packet takes only 8 bytes, and 4
/// more if packets vary in duration.
class PacketTable {
 public:
    /// Adds a packet. Adds nothing and returns false if the packet begins after the first terabyte
    /// of the file or exceeds 16 MiB.
    bool add(const PacketPlace& place);

    std::size_t size() const noexcept { return places_.size(); }
    PacketPlace operator[](std::size_t packet) const;

    /// The sums over all packets, and the size of the largest one in bytes.
    std::uint64_t byteCount() const noexcept { return byteCount_; }
    std::uint64_t frameCount() const noexcept { return frameCount_; }
    std::uint32_t largestSize() const noexcept { return largestSize_; }

 private:
    std::vector<std::uint64_t> places_;  // offset in the high bits, size in the low ones
    /// Frames of each packet; empty while all packets have `commonFrameCount_`.
    std::vector<std::uint32_t> frameCounts_;
    std::uint32_t commonFrameCount_ = 0;
    std::uint64_t byteCount_ = 0;
    std::uint64_t frameCount_ = 0;
    std::uint32_t largestSize_ = 0;
};

}  // namespace zav::detail
