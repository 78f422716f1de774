#include "ZAVAudioStreaming/core/Diagnostics.hpp"

#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>

#include "ZAVAudioStreaming/support/NeverDestroyed.hpp"

namespace zav {

using namespace detail;

namespace {

struct InstalledReceiver {
    std::shared_mutex mutex;  ///< shared by running calls, so that none waits for another
    DiagnosticsHandler handler;
};

InstalledReceiver& installed() {
    static NeverDestroyed<InstalledReceiver> theOne;
    return theOne.get();
}

void printToStandardOutput(std::string_view line) {
    // One call a line: stdio locks the stream only for one call.
    std::fputs((std::string(line) + "\n").c_str(), stdout);
}

}  // namespace

DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler) {
    const std::lock_guard lock(installed().mutex);
    return std::exchange(installed().handler, std::move(handler));
}

void printDiagnostics(std::string_view line) {
    const std::shared_lock lock(installed().mutex);
    if (installed().handler) {
        installed().handler(line);
    } else {
        printToStandardOutput(line);
    }
}

}  // namespace zav
