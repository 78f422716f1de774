#pragma once

#include <cstddef>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

namespace zav::detail {

/// Returns the highest byte of a silent sample in a PCM, A-law or mu-law format. All other bytes of
/// the sample are 0. A silent sample of one byte is this byte. In signed and float samples of any
/// size, every byte of silence is this byte.
///
/// Source of the two law bytes: ITU-T G.711, the codes of the smallest positive value. A-law
/// inverts the even bits.
constexpr std::byte silenceByteOf(const AudioStreamBasicDescription& format) {
    constexpr std::byte kALawSilence{0xD5};
    constexpr std::byte kULawSilence{0xFF};
    constexpr std::byte kUnsignedMiddle{0x80};
    switch (format.mFormatID) {
        case kAudioFormatALaw:
            return kALawSilence;
        case kAudioFormatULaw:
            return kULawSilence;
        default:
            break;
    }
    const bool isUnsigned =
        (format.mFormatFlags & (kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsFloat)) == 0;
    return isUnsigned ? kUnsignedMiddle : std::byte{0};
}

}  // namespace zav::detail
