#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav::detail {

/// Memory for one chunk, for the length of one call. Its contents are undefined. It is aligned for
/// samples of any type. Small chunks stay on the stack: for one SBC frame, the heap would cost as
/// much as everything else that a node does around the codec. Fatal, at the caller's position, if
/// there is no memory.
class ChunkBuffer {
 public:
    explicit ChunkBuffer(std::size_t size, SourcePosition position = SourcePosition::current()) {
        if (size > sizeof(small_)) {
            large_.reset(new (std::nothrow) std::byte[size]);
            if (large_ == nullptr) {
                fatalError(FatalCause::outOfMemory, "Out of memory", position);
            }
        }
    }

    std::byte* data() noexcept { return large_ != nullptr ? large_.get() : small_.data(); }

 private:
    // Not initialised on purpose: clearing it would cost as much time as the stack saves.
    alignas(std::max_align_t) std::array<std::byte, 8192> small_;
    std::unique_ptr<std::byte[]> large_;
};

}  // namespace zav::detail
