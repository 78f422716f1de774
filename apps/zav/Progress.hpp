#pragma once

#include <chrono>
#include <string>

namespace zavtool {

/// A line on standard error that says how far a run is and how fast, against real time. Silent
/// when standard error is not a terminal.
class Progress {
 public:
    explicit Progress(bool isQuiet);
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `share` is 0 to 1, `audioSeconds` what has been worked through so far.
    void update(double share, double audioSeconds);
    /// Leaves `summary` in place of the line.
    void finish(const std::string& summary, double audioSeconds);

 private:
    using Clock = std::chrono::steady_clock;

    double timesRealTime(double audioSeconds) const;
    void wipe();

    bool isShown_;
    bool isOnScreen_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastUpdate_ = start_;
};

}  // namespace zavtool
