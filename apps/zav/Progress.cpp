#include "Progress.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace zavtool {

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
    isOnScreen_ = true;
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

void Progress::wipe() {
    if (isOnScreen_) {
        std::fputs("\r\033[K", stderr);
        isOnScreen_ = false;
    }
}

}  // namespace zavtool
