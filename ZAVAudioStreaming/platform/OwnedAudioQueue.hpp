#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav {

struct DisposeOfAudioQueue {
    void operator()(AudioQueueRef queue) const { AudioQueueDispose(queue, true); }
};

/// A node's queue. At its end no callback runs any more, except one that the end comes from.
using OwnedAudioQueue = std::unique_ptr<std::remove_pointer_t<AudioQueueRef>, DisposeOfAudioQueue>;

/// Reads a property that is one number; `value` is untouched when that fails.
[[nodiscard]] inline OSStatus readAudioQueueProperty(AudioQueueRef queue,
                                                     AudioQueuePropertyID property,
                                                     std::uint32_t& value) {
    std::uint32_t size = sizeof(value);
    return AudioQueueGetProperty(queue, property, &value, &size);
}

}  // namespace zav
