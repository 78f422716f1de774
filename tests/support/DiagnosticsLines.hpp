#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ZAVAudioStreaming/core/Diagnostics.hpp"

namespace zav::test {

/// Keeps the library's diagnostics lines while it lives, in place of printing them. One at a time.
class DiagnosticsLines {
 public:
    DiagnosticsLines() {
        setDiagnosticsHandler([this](std::string_view line) {
            const std::lock_guard lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~DiagnosticsLines() { setDiagnosticsHandler(nullptr); }

    DiagnosticsLines(const DiagnosticsLines&) = delete;
    DiagnosticsLines& operator=(const DiagnosticsLines&) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

 private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace zav::test
