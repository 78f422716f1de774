#include "ZAVAudioStreaming/core/FatalError.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace zav {
namespace {

std::atomic<FatalErrorHandler> fatalHandler{nullptr};

const char* withoutFolder(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler) noexcept {
    return fatalHandler.exchange(handler);
}

void fatalError(std::string_view message, SourcePosition position) {
    position.file = withoutFolder(position.file);
    // Taken out, so that a handler that meets a fault itself is not called again.
    if (const auto handler = fatalHandler.exchange(nullptr)) {
        handler(message, position);
    }
    const std::string line = "Fatal error: " + std::string(message) + ": file " + position.file +
                             ", line " + std::to_string(position.line) + "\n";
    std::fflush(stdout);
    std::fputs(line.c_str(), stderr);
    std::abort();
}

}  // namespace zav
