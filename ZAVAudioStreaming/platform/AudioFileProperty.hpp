#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav {

/// Reads a property of a file as a `Value`, as the file nodes do: a property whose size cannot be
/// asked for is a fatal stop without a message; a value that then cannot be read is all zero.
template <class Value>
Value audioFileProperty(AudioFileID file, AudioFilePropertyID property,
                        SourcePosition position = SourcePosition::current()) {
    std::uint32_t size = 0;
    if (const OSStatus status = AudioFileGetPropertyInfo(file, property, &size, nullptr);
        status != noErr) {
        fatalError(FatalCause::fileProperty, status, "", position);
    }
    std::vector<std::byte> bytes(size);
    // Best effort: the size was there, and zeros are the answer of a file that cannot tell.
    static_cast<void>(AudioFileGetProperty(file, property, &size, bytes.data()));
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof(Value), bytes.size()));
    return value;
}

}  // namespace zav
