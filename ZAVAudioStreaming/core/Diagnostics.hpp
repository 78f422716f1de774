#pragma once

#include <functional>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Receives one diagnostics line of the library, without its line feed. The line is valid only
/// during the call. The handler is called on the thread that met the event, possibly on several
/// threads at once, in the middle of a node's call. It must not call the library, and must not wait
/// for a thread that may be in it.
using DiagnosticsHandler = std::function<void(std::string_view line)>;

/// Installs the receiver of the library's diagnostics lines and returns the previous one. An empty
/// one, the default, prints each line to standard output. There are no log levels.
///
/// Waits for calls of the previous receiver: when this has returned, none is running. So the caller
/// must not hold a lock that a receiver takes, and a receiver must not call this.
///
/// Threads: any.
ZAV_EXPORT DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler);

/// Gives one line, without its line feed, to the installed receiver. For nodes.
///
/// Threads: any. On standard output, lines of several threads do not mix.
ZAV_EXPORT void printDiagnostics(std::string_view line);

}  // namespace zav
