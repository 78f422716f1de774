#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::test {

/// Packed linear PCM with other flags.
inline AudioStreamBasicDescription pcmFormat(
    double rate, std::uint32_t channels, std::uint32_t bits = 16,
    std::uint32_t flags = kAudioFormatFlagIsSignedInteger) {
    AudioStreamBasicDescription format = linearPcm(rate, channels, bits);
    format.mFormatFlags = flags | kAudioFormatFlagIsPacked;
    return format;
}

/// An SBC stream's format with 128 samples a frame, from literal values.
inline AudioStreamBasicDescription sbcFormat(double rate, std::uint32_t channels,
                                             std::uint32_t flags, std::uint32_t frameLength) {
    return {.mSampleRate = rate,
            .mFormatID = kAudioFormatSbc,
            .mFormatFlags = flags,
            .mBytesPerPacket = frameLength,
            .mFramesPerPacket = 128,
            .mChannelsPerFrame = channels};
}

/// A compressed stream's format, other than SBC's.
inline AudioStreamBasicDescription compressedFormat(std::uint32_t formatID, double rate,
                                                    std::uint32_t channels,
                                                    std::uint32_t framesPerPacket = 0,
                                                    std::uint32_t flags = 0) {
    return {.mSampleRate = rate,
            .mFormatID = formatID,
            .mFormatFlags = flags,
            .mFramesPerPacket = framesPerPacket,
            .mChannelsPerFrame = channels};
}

}  // namespace zav::test
