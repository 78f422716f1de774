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

/// Reads a property of this type; `value` is untouched when that fails.
template <class Value>
[[nodiscard]] OSStatus readAudioQueueProperty(AudioQueueRef queue, AudioQueuePropertyID property,
                                              Value& value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    std::uint32_t size = sizeof(value);
    return AudioQueueGetProperty(queue, property, &value, &size);
}

}  // namespace zav
