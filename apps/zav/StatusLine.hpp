#pragma once

#include <string>
#include <vector>

namespace zavtool {

/// A line on standard error that shows the state of a run. Prints nothing if standard error is not
/// a terminal.
class StatusLine {
 public:
    explicit StatusLine(bool isQuiet);
    ~StatusLine();

    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool isShown() const { return isShown_; }
    /// Shows the fields in one line. Leaves out the fields that do not fit into the terminal.
    void show(const std::vector<std::string>& fields) const;
    /// Replaces the line by `summary`.
    void finish(const std::string& summary) const;

    /// Erases the line, if it is shown. Safe in a signal handler.
    static void wipe() noexcept;

 private:
    bool isShown_;
};

}  // namespace zavtool
