#include "ZAVAudioStreaming/core/FatalError.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ZAVAudioStreaming/support/Mutex.hpp"
#include "ZAVAudioStreaming/support/NeverDestroyed.hpp"

namespace zav {

using namespace detail;

namespace {

struct InstalledHandler {
    Mutex mutex;  ///< also held while the handler runs
    FatalErrorHandler handler ZAV_GUARDED_BY(mutex);
};

InstalledHandler& installedHandler() {
    static NeverDestroyed<InstalledHandler> theOne;
    return theOne.get();
}

/// True while this thread runs the handler.
thread_local bool isHandling = false;

/// Sets `isHandling` for a scope. A fuzzer's handler throws. The flag is cleared then, too, so the
/// next stop calls the handler again.
class Handling {
 public:
    Handling() { isHandling = true; }
    ~Handling() { isHandling = false; }

    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;
};

const char* withoutFolder(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

[[noreturn]] void printAndAbort(const FatalStop& stop) {
    std::fflush(stdout);
    std::fprintf(stderr, "Fatal error: %.*s: file %s, line %u\n",
                 static_cast<int>(stop.text.size()), stop.text.data(), stop.position.file,
                 stop.position.line);
    std::abort();
}

}  // namespace

FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler) {
    InstalledHandler& current = installedHandler();
    const MutexLock lock(current.mutex);
    return std::exchange(current.handler, std::move(handler));
}

void fatalError(FatalCause cause, std::string_view text, SourcePosition position) {
    fatalError(cause, 0, text, position);
}

void fatalError(FatalCause cause, std::int32_t code, std::string_view text,
                SourcePosition position) {
    const FatalStop stop{cause, code, text, {withoutFolder(position.file), position.line}};
    if (isHandling) {
        printAndAbort(stop);
    }
    // Hold the lock to the end: a stop on another thread must not abort while the handler saves
    // data.
    InstalledHandler& current = installedHandler();
    const MutexLock lock(current.mutex);
    if (current.handler) {
        const Handling handling;
        current.handler(stop);
    }
    printAndAbort(stop);
}

}  // namespace zav
