#pragma once

#include <cstdint>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::test {

/// Packed linear PCM; `flags` adds to the packed flag.
inline AudioStreamBasicDescription pcmFormat(
    double rate, std::uint32_t channels, std::uint32_t bits = 16,
    std::uint32_t flags = kAudioFormatFlagIsSignedInteger) {
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = flags | kAudioFormatFlagIsPacked;
    format.mBytesPerPacket = bits / 8 * channels;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = bits / 8 * channels;
    format.mChannelsPerFrame = channels;
    format.mBitsPerChannel = bits;
    return format;
}

/// An SBC stream's format with the given flags and frame length.
inline AudioStreamBasicDescription sbcFormat(double rate, std::uint32_t channels,
                                             std::uint32_t flags, std::uint32_t frameLength) {
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = kAudioFormatSbc;
    format.mFormatFlags = flags;
    format.mBytesPerPacket = frameLength;
    format.mFramesPerPacket = 128;
    format.mChannelsPerFrame = channels;
    return format;
}

/// A compressed stream's format, other than SBC's.
inline AudioStreamBasicDescription compressedFormat(std::uint32_t formatID, double rate,
                                                    std::uint32_t channels,
                                                    std::uint32_t framesPerPacket = 0,
                                                    std::uint32_t flags = 0) {
    AudioStreamBasicDescription format;
    format.mSampleRate = rate;
    format.mFormatID = formatID;
    format.mFormatFlags = flags;
    format.mFramesPerPacket = framesPerPacket;
    format.mChannelsPerFrame = channels;
    return format;
}

/// An Opus stream's format.
inline AudioStreamBasicDescription opusFormat(double rate, std::uint32_t channels) {
    return compressedFormat(kAudioFormatOpus, rate, channels);
}

}  // namespace zav::test
