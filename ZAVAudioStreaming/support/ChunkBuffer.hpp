#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav::detail {

/// Memory for one chunk during one call. Its contents are undefined. It is aligned for samples of
/// any type. Small chunks stay on the stack, because the heap is slow: for one SBC frame, it would
/// cost as much as all other work of a node around the codec. Fatal, at the caller's position, if
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
    // Deliberately not initialised. Clearing it would cost the time that the stack saves.
    alignas(std::max_align_t) std::array<std::byte, 8192> small_;
    std::unique_ptr<std::byte[]> large_;
};

}  // namespace zav::detail
