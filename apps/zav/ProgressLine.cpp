#include "ProgressLine.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zavtool {

void ProgressLine::update(double share, double audioSeconds) {
    constexpr auto kInterval = std::chrono::milliseconds(100);
    if (!line_.isShown() || Clock::now() - lastUpdate_ < kInterval) {
        return;
    }
    lastUpdate_ = Clock::now();
    std::array<char, 64> done{};
    std::array<char, 64> speed{};
    std::snprintf(done.data(), done.size(), "%3.0f %%", 100 * share);
    std::snprintf(speed.data(), speed.size(), "%.0f times real time", timesRealTime(audioSeconds));
    line_.show({done.data(), speed.data()});
}

void ProgressLine::finish(const std::string& summary, double audioSeconds) {
    std::array<char, 64> speed{};
    std::snprintf(speed.data(), speed.size(), ", %.0f times real time",
                  timesRealTime(audioSeconds));
    line_.finish(summary + speed.data());
}

double ProgressLine::timesRealTime(double audioSeconds) const {
    constexpr double kShortestInSeconds = 1e-6;
    const std::chrono::duration<double> elapsed = Clock::now() - start_;
    return audioSeconds / std::max(elapsed.count(), kShortestInSeconds);
}

}  // namespace zavtool
