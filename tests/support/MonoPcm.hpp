#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/TestAudio.hpp"

/// Mono PCM at 48 kHz in every encoding of audio queues, and its samples byte by byte.
namespace zav::test {

inline constexpr std::uint32_t kFloats = kAudioFormatFlagIsFloat;
inline constexpr std::uint32_t kSignedInts = kAudioFormatFlagIsSignedInteger;
inline constexpr std::uint32_t kBigEndian = kAudioFormatFlagIsBigEndian;

inline AudioStreamBasicDescription monoPcm(std::uint32_t bits, std::uint32_t flags = kSignedInts) {
    return pcmFormat(48000, 1, bits, flags);
}

/// A-law or mu-law.
inline AudioStreamBasicDescription monoLaw(std::uint32_t formatID) {
    auto format = monoPcm(8, 0);
    format.mFormatID = formatID;
    return format;
}

inline std::string nameOf(const AudioStreamBasicDescription& pcm) {
    return std::to_string(pcm.mBitsPerChannel) + " bits, " + fourCharText(pcm.mFormatID) +
           ", flags " + std::to_string(pcm.mFormatFlags);
}

/// One or more samples, byte by byte.
using SampleBytes = std::vector<std::uint8_t>;

/// `byteCount` bytes that repeat these samples.
inline Bytes repeated(const SampleBytes& samples, std::size_t byteCount) {
    Bytes bytes;
    while (bytes.size() < byteCount) {
        bytes.push_back(std::byte{samples[bytes.size() % samples.size()]});
    }
    return bytes;
}

}  // namespace zav::test
