#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav {

/// Memory for one chunk, its contents undefined. No memory is a fatal stop at the caller's
/// position.
inline std::unique_ptr<std::byte[]> allocateBytes(
    std::size_t size, SourcePosition position = SourcePosition::current()) {
    std::unique_ptr<std::byte[]> bytes(new (std::nothrow) std::byte[size]);
    if (bytes == nullptr) {
        fatalError("Out of memory", position);
    }
    return bytes;
}

}  // namespace zav
