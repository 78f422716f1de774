#pragma once

#include <algorithm>
#include <cstddef>

namespace zav::detail {

/// Clears what a codec left unwritten at the end of a frame's place. Output thus reads as if the
/// whole buffer had been cleared first, without passing over the memory twice.
inline void zeroTail(std::byte* frame, std::size_t written, std::size_t frameSize) {
    if (written < frameSize) {
        std::fill(frame + written, frame + frameSize, std::byte{0});
    }
}

}  // namespace zav::detail
