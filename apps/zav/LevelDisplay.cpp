#include "LevelDisplay.hpp"

#include <ZAVAudioStreaming/platform/OwnedAudioQueue.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "FormatText.hpp"

namespace zavtool {
namespace {

/// Level at the lower end of the bar.
constexpr double kLowestInDecibels = -60;

/// Factor by which the bar falls between two calls of `look` (2 dB). The bar falls slowly because
/// the eye must follow it, and because a device may move no audio between two calls.
constexpr double kFall = 0.8;

/// Returns minus infinity for silence.
double decibels(double level) {
    return 20 * std::log10(level);
}

std::string peakText(double level) {
    const double tenths = std::round(10 * decibels(level)) / 10;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "peak %.1f dB", tenths + 0.0);  // no -0.0
    return text.data();
}

}  // namespace

void LevelDisplay::look() {
    zav::AudioQueueLevel level;
    // Every queue has this property.
    static_cast<void>(zav::readAudioQueueProperty(queue_, zav::kAudioQueueProperty_Level, level));
    shown_ = std::max(level.peak, shown_ * kFall);
    peak_ = std::max(peak_, level.peak);
    clipCount_ = level.clippedSampleCount;
}

std::vector<std::string> LevelDisplay::fields() {
    look();
    constexpr std::size_t kBarWidth = 6;  // one mark each 10 dB; more marks would exceed 80 columns
    const auto filled = static_cast<std::size_t>(
        std::lround(kBarWidth * std::max(0.0, 1 - decibels(shown_) / kLowestInDecibels)));
    return {"[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') + "]",
            peakText(peak_), countText(clipCount_, "clip")};
}

std::string LevelDisplay::summary() {
    look();
    return peakText(peak_) + ", " + countText(clipCount_, "clip");
}

}  // namespace zavtool
