#pragma once

#include <chrono>
#include <string>

#include "StatusLine.hpp"

namespace zavtool {

/// Shows how much of a file is done and how fast, as a multiple of real time.
class ProgressLine {
 public:
    explicit ProgressLine(bool isQuiet) : line_(isQuiet) {}

    /// `share` is 0 to 1, `audioSeconds` the duration of the audio that is done.
    void update(double share, double audioSeconds);
    /// Leaves `summary` in place of the line.
    void finish(const std::string& summary, double audioSeconds);

 private:
    using Clock = std::chrono::steady_clock;

    double timesRealTime(double audioSeconds) const;

    StatusLine line_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastUpdate_ = start_;
};

}  // namespace zavtool
