#pragma once

#include <algorithm>
#include <cstddef>

namespace zav::detail {

/// Clears the end of a frame's memory that the codec has not written. The output is the same as if
/// the whole buffer had been cleared first, but no memory is written twice.
inline void zeroTail(std::byte* frame, std::size_t written, std::size_t frameSize) {
    if (written < frameSize) {
        std::fill(frame + written, frame + frameSize, std::byte{0});
    }
}

}  // namespace zav::detail
