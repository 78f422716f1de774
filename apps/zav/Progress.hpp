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

    /// Takes the line off the screen, if it is there. Safe in a signal handler.
    static void wipe() noexcept;

 private:
    using Clock = std::chrono::steady_clock;

    double timesRealTime(double audioSeconds) const;

    bool isShown_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastUpdate_ = start_;
};

}  // namespace zavtool
