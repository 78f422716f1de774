#include "ZAVAudioStreaming/core/FatalError.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace zav {
namespace {

std::atomic<FatalErrorHandler> installedHandler{nullptr};

}  // namespace

FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler) noexcept {
    return installedHandler.exchange(handler);
}

void fatalError(std::string_view message, SourcePosition position) {
    // Taken out, so that a handler that meets a fault itself is not called again.
    if (const auto handler = installedHandler.exchange(nullptr)) {
        handler(message, position);
    }
    const std::string line = "Fatal error: " + std::string(message) + ": file " +
                             std::string(position.file) + ", line " +
                             std::to_string(position.line) + "\n";
    std::fflush(stdout);
    std::fputs(line.c_str(), stderr);
    std::abort();
}

}  // namespace zav
