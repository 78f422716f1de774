#pragma once

#include <algorithm>
#include <cstddef>

namespace zav::detail {

/// Clears the end of a frame, which the codec has not written. Clearing the whole buffer first
/// would give the same output, but would write the memory twice.
inline void zeroTail(std::byte* frame, std::size_t written, std::size_t frameSize) {
    if (written < frameSize) {
        std::fill(frame + written, frame + frameSize, std::byte{0});
    }
}

}  // namespace zav::detail
