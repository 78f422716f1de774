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
        state().lines.clear();
        setDiagnosticsHandler([](std::string_view line) {
            const std::lock_guard lock(state().mutex);
            state().lines.emplace_back(line);
        });
    }
    ~DiagnosticsLines() { setDiagnosticsHandler(nullptr); }

    DiagnosticsLines(const DiagnosticsLines&) = delete;
    DiagnosticsLines& operator=(const DiagnosticsLines&) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::lock_guard lock(state().mutex);
        return std::exchange(state().lines, {});
    }

 private:
    struct State {
        std::mutex mutex;
        std::vector<std::string> lines;
    };
    static State& state() {
        static State state;
        return state;
    }
};

}  // namespace zav::test
