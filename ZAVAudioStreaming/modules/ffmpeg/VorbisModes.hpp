#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zav::detail {

/// The block sizes of the packets of a Vorbis stream. Each packet names a mode, and the stream's
/// setup header assigns a block size to each mode.
class VorbisModes {
 public:
    /// `extradata` is the stream's three headers in libavcodec's packing. For any other bytes,
    /// `blockSize` always returns 0.
    explicit VorbisModes(std::span<const std::byte> extradata);

    /// The block size of a packet, in frames; 0 if the packet is not audio. Half of a block
    /// overlaps with its neighbours.
    std::uint32_t blockSize(std::span<const std::byte> packet) const;

 private:
    std::vector<std::uint32_t> blockSizes_;  // by mode
};

}  // namespace zav::detail
