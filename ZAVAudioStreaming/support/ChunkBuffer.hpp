#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav::detail {

/// Memory for one chunk, its contents undefined, aligned for any sample, as long as the call that
/// makes it. Small chunks stay on the stack: for one SBC frame, the heap would cost as much as
/// everything else that a node does around the codec. No memory is a fatal stop at the caller's
/// position.
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
    // Not initialised on purpose: clearing it would cost what it saves.
    alignas(std::max_align_t) std::array<std::byte, 8192> small_;
    std::unique_ptr<std::byte[]> large_;
};

}  // namespace zav::detail
