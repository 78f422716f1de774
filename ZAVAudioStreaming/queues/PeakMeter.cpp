#include "ZAVAudioStreaming/queues/PeakMeter.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

#include "ZAVAudioStreaming/support/G711.hpp"

namespace zav::detail {
namespace {

// Sample types. Each has its size in bytes, its magnitude and the greatest magnitude.

template <std::size_t kByteCount, bool kIsBigEndian>
std::uint32_t bitsOf(const std::byte* sample) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < kByteCount; ++i) {
        const std::size_t place = kIsBigEndian ? kByteCount - 1 - i : i;
        bits |= std::to_integer<std::uint32_t>(sample[place]) << (8 * i);
    }
    return bits;
}

template <std::size_t kByteCount, bool kIsBigEndian>
struct SignedInteger {
    static constexpr std::size_t kSize = kByteCount;
    static constexpr int kUnusedBits = 32 - 8 * static_cast<int>(kByteCount);
    static constexpr std::uint32_t kFullScale = 0x7FFFFFFFU >> kUnusedBits;
    static std::uint32_t magnitude(const std::byte* sample) {
        const std::uint32_t bits = bitsOf<kByteCount, kIsBigEndian>(sample) << kUnusedBits;
        return (static_cast<std::int32_t>(bits) < 0 ? 0U - bits : bits) >> kUnusedBits;
    }
};

struct Unsigned8 {
    static constexpr std::size_t kSize = 1;
    static constexpr int kFullScale = 127;
    static int magnitude(const std::byte* sample) {
        return std::abs(std::to_integer<int>(*sample) - 128);
    }
};

template <bool kIsBigEndian>
struct Float {
    static constexpr std::size_t kSize = sizeof(float);
    static constexpr float kFullScale = 1;
    static float magnitude(const std::byte* sample) {
        return std::fabs(std::bit_cast<float>(bitsOf<sizeof(float), kIsBigEndian>(sample)));
    }
};

template <int (*kDecode)(int), int kLoudest>
struct G711 {
    static constexpr std::size_t kSize = 1;
    static constexpr int kFullScale = kDecode(kLoudest);
    static int magnitude(const std::byte* sample) {
        return std::abs(kDecode(std::to_integer<int>(*sample)));
    }
};

template <class Sample>
AudioQueueLevel levelOf(std::span<const std::byte> pcm) {
    auto highest = decltype(Sample::magnitude(nullptr)){};
    std::uint64_t clipped = 0;
    for (; pcm.size() >= Sample::kSize; pcm = pcm.subspan(Sample::kSize)) {
        const auto magnitude = Sample::magnitude(pcm.data());
        highest = std::max(highest, magnitude);
        clipped += magnitude >= Sample::kFullScale ? 1 : 0;
    }
    const double peak = static_cast<double>(highest) / static_cast<double>(Sample::kFullScale);
    return {std::min(1.0, peak), clipped};
}

}  // namespace

PeakMeter::Measure PeakMeter::measureOf(const AudioStreamBasicDescription& pcm) {
    if (pcm.mFormatID == kAudioFormatALaw) {
        return levelOf<G711<fromALaw, 0xAA>>;
    }
    if (pcm.mFormatID == kAudioFormatULaw) {
        return levelOf<G711<fromMuLaw, 0x80>>;
    }
    const bool isBigEndian = (pcm.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if ((pcm.mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
        return isBigEndian ? levelOf<Float<true>> : levelOf<Float<false>>;
    }
    switch (pcm.mBitsPerChannel) {
        case 8:
            return levelOf<Unsigned8>;
        case 16:
            return isBigEndian ? levelOf<SignedInteger<2, true>> : levelOf<SignedInteger<2, false>>;
        case 24:
            return isBigEndian ? levelOf<SignedInteger<3, true>> : levelOf<SignedInteger<3, false>>;
        default:
            return isBigEndian ? levelOf<SignedInteger<4, true>> : levelOf<SignedInteger<4, false>>;
    }
}

PeakMeter::PeakMeter(const AudioStreamBasicDescription& pcm) : measure_(measureOf(pcm)) {}

void PeakMeter::clear() {
    peak_ = 0;
    clippedSampleCount_ = 0;
}

void PeakMeter::add(std::span<const std::byte> pcm) noexcept {
    if (!isWatched_.load(std::memory_order_relaxed)) {
        return;
    }
    const AudioQueueLevel level = measure_(pcm);
    // Only this thread raises the peak. The result of a concurrent `take` may or may not include
    // this call.
    if (level.peak > peak_) {
        peak_ = level.peak;
    }
    clippedSampleCount_ += level.clippedSampleCount;
}

AudioQueueLevel PeakMeter::take() noexcept {
    isWatched_ = true;
    return {peak_.exchange(0), clippedSampleCount_};
}

}  // namespace zav::detail
