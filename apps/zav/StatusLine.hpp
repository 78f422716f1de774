#pragma once

#include <string>
#include <vector>

namespace zavtool {

/// A line on standard error that tells how a run is getting on. Silent when standard error is not a
/// terminal.
class StatusLine {
 public:
    explicit StatusLine(bool isQuiet);
    ~StatusLine();

    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool isShown() const { return isShown_; }
    /// Shows the fields in one line, but for those that the terminal has no room for.
    void show(const std::vector<std::string>& fields) const;
    /// Leaves `summary` in place of the line.
    void finish(const std::string& summary) const;

    /// Takes the line off the screen, if it is there. Safe in a signal handler.
    static void wipe() noexcept;

 private:
    bool isShown_;
};

}  // namespace zavtool
