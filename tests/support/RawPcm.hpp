#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"

/// PCM without a header, on its way to other programs and back, and compared.
namespace zav::test {

inline std::vector<std::byte> bytesOf(const std::string& text) {
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

inline std::string quoted(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

/// ffmpeg's name for PCM without a header.
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

/// Decibels that `signal` stands above its difference from `other`, over their common length.
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
