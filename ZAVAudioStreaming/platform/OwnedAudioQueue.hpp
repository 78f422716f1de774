#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"

namespace zav {

struct DisposeOfAudioQueue {
    void operator()(AudioQueueRef queue) const { AudioQueueDispose(queue, true); }
};

/// Owns a queue. The owner's destructor disposes of the queue. No callback runs after that, except
/// a callback that destroys the owner.
using OwnedAudioQueue = std::unique_ptr<std::remove_pointer_t<AudioQueueRef>, DisposeOfAudioQueue>;

/// Reads a property of this type. Returns the queue's status; `value` is untouched after a failure.
template <class Value>
[[nodiscard]] OSStatus readAudioQueueProperty(AudioQueueRef queue, AudioQueuePropertyID property,
                                              Value& value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    std::uint32_t size = sizeof(value);
    return AudioQueueGetProperty(queue, property, &value, &size);
}

/// Returns a property of four bytes. Fatal, with this text and at the caller's position, if the
/// queue does not report it.
inline std::uint32_t requireAudioQueueProperty(
    AudioQueueRef queue, AudioQueuePropertyID property, std::string_view text,
    SourcePosition position = SourcePosition::current()) {
    std::uint32_t value = 0;
    if (const OSStatus status = readAudioQueueProperty(queue, property, value); status != noErr) {
        fatalError(FatalCause::audioQueue, status, text, position);
    }
    return value;
}

}  // namespace zav
