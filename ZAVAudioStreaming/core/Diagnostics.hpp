#pragma once

#include <functional>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Receives one diagnostics line of the library, without its line feed. The line is valid only
/// during the call. The library calls the handler on the thread of the event, in the middle of a
/// node's call. Several threads may call it at once. The handler must not call the library. It must
/// not wait for a thread that may be inside the library.
using DiagnosticsHandler = std::function<void(std::string_view line)>;

/// Installs the receiver of the library's diagnostics lines and returns the previous receiver. With
/// an empty receiver, the default, the library prints each line to standard output. There are no
/// log levels.
///
/// Waits for running calls of the previous receiver. No such call is running after the return. So
/// the caller must not hold a lock that a receiver takes, and a receiver must not call this
/// function.
///
/// Threads: any.
ZAV_EXPORT DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler);

/// Passes one line, without its line feed, to the installed receiver. Nodes call this function.
///
/// Threads: any. Lines of several threads do not mix on standard output.
ZAV_EXPORT void printDiagnostics(std::string_view line);

}  // namespace zav
