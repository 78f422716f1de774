// Prints the delay of a recording's right channel against the left channel, and the likeness of the
// two channels at that delay:
//
//     compare_channels recording.wav    # 16 bits, stereo
//
// The program tries delays up to five seconds and picks the delay with the highest correlation.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <span>
#include <stdexcept>
#include <vector>

namespace {

constexpr double kLongestDelayInSeconds = 5;
constexpr double kCoarseRateInHz = 2000;

using Samples = std::vector<double>;

/// Separates the channels of a stereo stream.
class Channels : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void receiveAudio(const void* bytes, std::uint64_t, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription*) override {
        const auto* frame = static_cast<const std::byte*>(bytes);
        for (std::uint64_t i = 0; i < packetNum; ++i) {
            std::array<std::int16_t, 2> samples{};
            std::memcpy(samples.data(), frame + i * sizeof(samples), sizeof(samples));
            left.push_back(samples[0]);
            right.push_back(samples[1]);
        }
    }

    Samples left;
    Samples right;
};

/// Returns the sum of every `factor` samples. This is the same audio at a low rate, for a quick
/// search.
Samples coarse(const Samples& samples, std::size_t factor) {
    Samples sums(samples.size() / factor);
    for (std::size_t i = 0; i < sums.size(); ++i) {
        const auto first = samples.begin() + static_cast<std::ptrdiff_t>(i * factor);
        sums[i] = std::accumulate(first, first + static_cast<std::ptrdiff_t>(factor), 0.0);
    }
    return sums;
}

/// Returns the delay with the highest correlation, from `first` to `last`.
std::size_t bestDelay(std::span<const double> said, std::span<const double> heard,
                      std::size_t first, std::size_t last) {
    std::size_t best = first;
    double highest = 0;
    for (std::size_t delay = first; delay <= std::min(last, heard.size()); ++delay) {
        const auto later = heard.subspan(delay);
        const std::size_t count = std::min(said.size(), later.size());
        const double correlation = std::inner_product(
            later.begin(), later.begin() + static_cast<std::ptrdiff_t>(count), said.begin(), 0.0);
        if (correlation > highest) {
            highest = correlation;
            best = delay;
        }
    }
    return best;
}

double power(std::span<const double> samples) {
    return std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
}

void compare(const char* path) {
    const auto source = zav::makeNode<zav::FileSource>(path);
    const zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (format.mBitsPerChannel != 16 || format.mBytesPerFrame != 4 ||
        format.mChannelsPerFrame != 2) {
        throw std::runtime_error("not 16 bits, stereo");
    }
    const auto channels = zav::makeNode<Channels>(source);
    while (source->readPackets(65536) > 0) {
    }
    const auto longest = static_cast<std::size_t>(kLongestDelayInSeconds * format.mSampleRate);
    const auto factor =
        static_cast<std::size_t>(std::max(format.mSampleRate / kCoarseRateInHz, 1.0));
    const std::size_t about =
        factor * bestDelay(coarse(channels->left, factor), coarse(channels->right, factor), 0,
                           longest / factor);
    const std::size_t delay =
        bestDelay(channels->left, channels->right, about - std::min(about, factor), about + factor);

    const std::span<const double> heard = std::span(channels->right).subspan(delay);
    const std::span<const double> said = std::span(channels->left).first(heard.size());
    Samples noise(said.size());
    std::transform(said.begin(), said.end(), heard.begin(), noise.begin(), std::minus<>());
    const double likeness = std::inner_product(said.begin(), said.end(), heard.begin(), 0.0) /
                            std::sqrt(power(said) * power(heard));
    if (!std::isfinite(likeness)) {
        throw std::runtime_error("a channel is silent");
    }
    std::printf("delay              %.2f ms\n",
                static_cast<double>(delay) * 1000 / format.mSampleRate);
    std::printf("likeness           %.2f %%, signal to noise %.1f dB\n", 100 * likeness,
                10 * std::log10(power(said) / std::max(power(noise), 1.0)));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: compare_channels RECORDING.wav\n", stderr);
        return 2;
    }
    try {
        compare(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
}
