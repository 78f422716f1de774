#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zav::detail {

/// The sizes of the blocks that the packets of a Vorbis stream hold.
class VorbisModes {
 public:
    /// `extradata` is the stream's three headers in libavcodec's packing. With anything else no
    /// packet has a block.
    explicit VorbisModes(std::span<const std::byte> extradata);

    /// Samples of one channel in the block of this packet, half of which overlap with its
    /// neighbours; 0 for a packet that is no audio.
    std::uint32_t blockSize(std::span<const std::byte> packet) const;

 private:
    std::vector<std::uint32_t> blockSizes_;  // by mode
};

}  // namespace zav::detail
