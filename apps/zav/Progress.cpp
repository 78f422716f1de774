#include "Progress.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string_view>

namespace zavtool {
namespace {

std::atomic<bool> isOnScreen{false};

}  // namespace

Progress::Progress(bool isQuiet) : isShown_(!isQuiet && ::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    wipe();
}

void Progress::update(double share, double audioSeconds) {
    constexpr auto kInterval = std::chrono::milliseconds(100);
    if (!isShown_ || Clock::now() - lastUpdate_ < kInterval) {
        return;
    }
    lastUpdate_ = Clock::now();
    wipe();
    std::fprintf(stderr, "%3.0f %%  %.0f times real time", 100 * share,
                 timesRealTime(audioSeconds));
    std::fflush(stderr);
    isOnScreen = true;
}

void Progress::finish(const std::string& summary, double audioSeconds) {
    wipe();
    if (isShown_) {
        std::fprintf(stderr, "%s, %.0f times real time\n", summary.c_str(),
                     timesRealTime(audioSeconds));
    }
}

double Progress::timesRealTime(double audioSeconds) const {
    constexpr double kShortestInSeconds = 1e-6;
    const std::chrono::duration<double> elapsed = Clock::now() - start_;
    return audioSeconds / std::max(elapsed.count(), kShortestInSeconds);
}

void Progress::wipe() noexcept {
    constexpr std::string_view kBackAndErase = "\r\033[K";
    if (isOnScreen.exchange(false)) {
        // A terminal that does not take it is none of our errors.
        static_cast<void>(!::write(STDERR_FILENO, kBackAndErase.data(), kBackAndErase.size()));
    }
}

}  // namespace zavtool
