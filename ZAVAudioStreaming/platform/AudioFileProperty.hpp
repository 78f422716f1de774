#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav {

/// Returns a property of a file as a `Value`, as the file nodes do. Fatal, with an empty message
/// and this position, if the property's size cannot be read. All zero if its value cannot be read.
template <class Value>
Value audioFileProperty(AudioFileID file, AudioFilePropertyID property,
                        SourcePosition position = SourcePosition::current()) {
    std::uint32_t size = 0;
    if (const OSStatus status = AudioFileGetPropertyInfo(file, property, &size, nullptr);
        status != noErr) {
        fatalError(FatalCause::fileProperty, status, "", position);
    }
    std::vector<std::byte> bytes(size);
    // Best effort: if the value cannot be read although it has a size, zeros stand for it.
    static_cast<void>(AudioFileGetProperty(file, property, &size, bytes.data()));
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof(Value), bytes.size()));
    return value;
}

}  // namespace zav
