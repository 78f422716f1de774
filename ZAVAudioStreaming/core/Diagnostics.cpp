#include "ZAVAudioStreaming/core/Diagnostics.hpp"

#include <cstdio>
#include <string>
#include <utility>

#include "ZAVAudioStreaming/support/Mutex.hpp"
#include "ZAVAudioStreaming/support/NeverDestroyed.hpp"

namespace zav {

using namespace detail;

namespace {

struct InstalledReceiver {
    SharedMutex mutex;  ///< shared by running calls, so they do not wait for each other
    DiagnosticsHandler handler ZAV_GUARDED_BY(mutex);
};

InstalledReceiver& installedReceiver() {
    static NeverDestroyed<InstalledReceiver> theOne;
    return theOne.get();
}

void printToStandardOutput(std::string_view line) {
    // Print the line with one call: stdio locks the stream only for one call.
    std::fputs((std::string(line) + "\n").c_str(), stdout);
}

}  // namespace

DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler) {
    InstalledReceiver& current = installedReceiver();
    const MutexLock lock(current.mutex);
    return std::exchange(current.handler, std::move(handler));
}

void printDiagnostics(std::string_view line) {
    InstalledReceiver& current = installedReceiver();
    const SharedLock lock(current.mutex);
    if (current.handler) {
        current.handler(line);
    } else {
        printToStandardOutput(line);
    }
}

}  // namespace zav
