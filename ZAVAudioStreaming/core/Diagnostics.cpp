#include "ZAVAudioStreaming/core/Diagnostics.hpp"

#include <atomic>
#include <cstdio>
#include <string>

namespace zav {
namespace {

void printToStandardOutput(std::string_view line) {
    // One call a line: stdio locks the stream only for one call.
    std::fputs((std::string(line) + "\n").c_str(), stdout);
}

std::atomic<DiagnosticsHandler> installedHandler{nullptr};

}  // namespace

DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler) noexcept {
    return installedHandler.exchange(handler);
}

void printDiagnostics(std::string_view line) {
    const auto handler = installedHandler.load();
    (handler != nullptr ? handler : printToStandardOutput)(line);
}

}  // namespace zav
