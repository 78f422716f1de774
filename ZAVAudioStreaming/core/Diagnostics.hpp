#pragma once

#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// Receives one diagnostics line of the library, without its line feed; it lives only during the
/// call. Called on whatever thread met the event, possibly on several at once, and in the middle of
/// a node's call: it must not call the library, nor wait for a thread that may be in it.
using DiagnosticsHandler = void (*)(std::string_view line);

/// Installs where the library's diagnostics lines go and returns the receiver before it. Null, the
/// default, prints each line to standard output. There are no log levels.
///
/// Threads: any.
ZAV_EXPORT DiagnosticsHandler setDiagnosticsHandler(DiagnosticsHandler handler) noexcept;

/// Writes one line, given without its line feed, to the installed receiver. For nodes.
///
/// Threads: any; lines of several threads do not mix.
ZAV_EXPORT void printDiagnostics(std::string_view line);

}  // namespace zav
