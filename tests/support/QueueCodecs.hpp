#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "ZAVAudioStreaming/posix/LoadModule.hpp"
#include "ZAVAudioStreaming/queues/CompressedCodecs.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"
#include "tests/support/Formats.hpp"

/// Helpers of the tests of queues' decoders and encoders.
namespace zav::test {

using namespace detail;

/// The status that a call throws; 0 if it throws none.
template <class Call>
OSStatus statusOf(Call call) {
    try {
        call();
    } catch (const StatusFailure& failure) {
        return failure.status();
    }
    return noErr;
}

/// Expects that `make` makes a coder for each of these formats, and refuses rates and channels that
/// no coder takes, and the formats in `refused`.
template <class Make>
void expectRefusals(Make make, std::initializer_list<std::uint32_t> formatIDs,
                    std::vector<AudioStreamBasicDescription> refused) {
    for (const std::uint32_t formatID : formatIDs) {
        EXPECT_EQ(statusOf([&] { make(compressedFormat(formatID, 48000, 2)); }), noErr)
            << fourCharText(formatID);
        for (const double rate : {0.0, -8000.0, 7999.0, 44100.5, 192001.0, 1e300, std::nan("")}) {
            refused.push_back(compressedFormat(formatID, rate, 2));
        }
        for (const std::uint32_t channels : {0U, 9U, 0xFFFFFFFFU}) {
            refused.push_back(compressedFormat(formatID, 48000, channels));
        }
    }
    for (const AudioStreamBasicDescription& format : refused) {
        EXPECT_EQ(statusOf([&] { make(format); }), kAudioFormatUnsupportedDataFormatError)
            << fourCharText(format.mFormatID) << " " << format.mSampleRate << " "
            << format.mChannelsPerFrame << " " << format.mFramesPerPacket;
    }
}

/// ffmpeg's option for PCM without a header.
inline std::string rawFormat(const AudioStreamBasicDescription& pcm) {
    const bool isFloat = (pcm.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    return " -f " + std::string(isFloat ? "f" : "s") + std::to_string(pcm.mBitsPerChannel) + "le ";
}

inline std::string rawOptions(const AudioStreamBasicDescription& pcm) {
    return rawFormat(pcm) + "-ar " + std::to_string(static_cast<int>(pcm.mSampleRate)) + " -ac " +
           std::to_string(pcm.mChannelsPerFrame) + " ";
}

template <class Sample>
std::vector<double> samplesAs(std::span<const std::byte> pcm, double scale) {
    std::vector<double> samples;
    for (; pcm.size() >= sizeof(Sample); pcm = pcm.subspan(sizeof(Sample))) {
        Sample sample;
        std::memcpy(&sample, pcm.data(), sizeof(Sample));
        samples.push_back(static_cast<double>(sample) / scale);
    }
    return samples;
}

inline std::vector<double> samplesOf(std::span<const std::byte> pcm,
                                     const AudioStreamBasicDescription& format) {
    return (format.mFormatFlags & kAudioFormatFlagIsFloat) != 0
               ? samplesAs<float>(pcm, 1)
               : samplesAs<std::int16_t>(pcm, 32768);
}

/// The level of `signal` above its difference from `other`, in decibels, over their common length.
inline double signalToNoise(std::span<const double> signal, std::span<const double> other) {
    double power = 0;
    double noise = 0;
    for (std::size_t i = 0; i < std::min(signal.size(), other.size()); ++i) {
        power += signal[i] * signal[i];
        noise += (signal[i] - other[i]) * (signal[i] - other[i]);
    }
    return 10 * std::log10(power / noise);
}

}  // namespace zav::test
