#pragma once

#include <new>
#include <stdexcept>

#include "ZAVAudioStreaming/core/FatalError.hpp"

namespace zav::detail {

/// Makes a call that allocates in the middle of a stream. Running out of memory is fatal, at the
/// caller's position, because no exception may leave a node there.
template <class Call>
void fatalWithoutMemory(Call call, SourcePosition position = SourcePosition::current()) {
    try {
        call();
    } catch (const std::bad_alloc&) {
        fatalError(FatalCause::outOfMemory, "Out of memory", position);
    } catch (const std::length_error&) {
        fatalError(FatalCause::outOfMemory, "Out of memory", position);
    }
}

}  // namespace zav::detail
