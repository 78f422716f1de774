#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::test {

/// Packed linear PCM; `flags` adds to the packed flag.
inline AudioStreamBasicDescription pcmFormat(
    double rate, std::uint32_t channels, std::uint32_t bits = 16,
    std::uint32_t flags = kAudioFormatFlagIsSignedInteger) {
    return {.mSampleRate = rate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = flags | kAudioFormatFlagIsPacked,
            .mBytesPerPacket = bits / 8 * channels,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = bits / 8 * channels,
            .mChannelsPerFrame = channels,
            .mBitsPerChannel = bits};
}

/// An SBC stream's format with the given flags and frame length.
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

/// An Opus stream's format.
inline AudioStreamBasicDescription opusFormat(double rate, std::uint32_t channels) {
    return compressedFormat(kAudioFormatOpus, rate, channels);
}

}  // namespace zav::test
