#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav {

/// Returns a property of a file as a `Value`, for the file nodes and applications. Fatal, with an
/// empty message at `position`, if the property's size cannot be read. All zero if only its value
/// cannot be read.
template <class Value>
Value audioFileProperty(AudioFileID file, AudioFilePropertyID property,
                        SourcePosition position = SourcePosition::current()) {
    std::uint32_t size = 0;
    if (const OSStatus status = AudioFileGetPropertyInfo(file, property, &size, nullptr);
        status != noErr) {
        fatalError(FatalCause::fileProperty, status, "", position);
    }
    std::vector<std::byte> bytes(size);
    // Best effort: if only the size can be read, the value stays zero.
    static_cast<void>(AudioFileGetProperty(file, property, &size, bytes.data()));
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof(Value), bytes.size()));
    return value;
}

}  // namespace zav
