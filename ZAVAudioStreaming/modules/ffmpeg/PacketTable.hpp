#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zav::detail {

/// Where a packet's bytes begin in the file, how many they are, and how many frames they hold.
struct PacketPlace {
    std::uint64_t offset;
    std::uint32_t size;
    std::uint32_t frameCount;
};

/// The packets of a file. A day of MP3 has three million, so each takes 8 bytes, and 4 more only
/// where packets differ in their frames.
class PacketTable {
 public:
    /// False when the packet is beyond what a place can tell: a terabyte into the file, or more
    /// than 16 MB long. It is not taken then.
    bool add(const PacketPlace& place);

    std::size_t size() const noexcept { return places_.size(); }
    PacketPlace operator[](std::size_t packet) const;

    std::uint64_t byteCount() const noexcept { return byteCount_; }
    std::uint64_t frameCount() const noexcept { return frameCount_; }
    std::uint32_t largestSize() const noexcept { return largestSize_; }

 private:
    std::vector<std::uint64_t> places_;  // offset in the high bits, size in the low ones
    /// Frames of every packet; empty while all have the first one's.
    std::vector<std::uint32_t> frameCounts_;
    std::uint32_t commonFrameCount_ = 0;
    std::uint64_t byteCount_ = 0;
    std::uint64_t frameCount_ = 0;
    std::uint32_t largestSize_ = 0;
};

}  // namespace zav::detail
