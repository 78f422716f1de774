#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

/// Code that the two live nodes share. Their queue buffers hold half a second of packets, within
/// limits. Sizes are in bytes. Fatal, at the caller's position, if 32 bits cannot hold a product.
namespace zav::detail {

/// Throws `AudioQueueError::failure` unless the queue's status is success.
inline void throwOnQueueFailure(OSStatus status) {
    if (status != noErr) {
        throw AudioQueueError::failure(status);
    }
}

inline constexpr double kLiveBufferDurationInSeconds = 0.5;
inline constexpr std::uint32_t kMaximumLiveBufferSize = 0x50000;
inline constexpr std::uint32_t kMinimumPlaybackBufferSize = 0x4000;

/// Returns 16 KiB to 320 KiB, but at least one packet. Returns the largest size if the number of
/// frames in a packet is unknown.
inline std::uint32_t playbackBufferSize(const AudioStreamBasicDescription& format,
                                        std::uint32_t maxPacketSize,
                                        SourcePosition position = SourcePosition::current()) {
    std::uint32_t size = std::max(kMaximumLiveBufferSize, maxPacketSize);
    if (format.mFramesPerPacket != 0) {
        const auto packetCount = checkedTruncate<std::uint32_t>(
            format.mSampleRate / format.mFramesPerPacket * kLiveBufferDurationInSeconds, position);
        size = checkedMultiply(maxPacketSize, packetCount, position);
    }
    if (size > kMaximumLiveBufferSize && size > maxPacketSize) {
        return kMaximumLiveBufferSize;
    }
    return std::max(size, kMinimumPlaybackBufferSize);
}

/// Returns at most 320 KiB. Counts each packet as one frame.
inline std::uint32_t captureBufferSize(const AudioStreamBasicDescription& format,
                                       std::uint32_t packetSize,
                                       SourcePosition position = SourcePosition::current()) {
    const double size = std::ceil(format.mSampleRate * kLiveBufferDurationInSeconds * packetSize);
    return std::min(checkedTruncate<std::uint32_t>(size, position), kMaximumLiveBufferSize);
}

}  // namespace zav::detail
