#pragma once

#include <cstdint>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A place in the sources, or for some stops a name and number that stay the same in all versions.
/// As a default argument, `current()` is the place of the caller.
struct SourcePosition {
    const char* file;  ///< file name; `fatalError` leaves out its folder
    std::uint32_t line;

    // Not std::source_location: Clang 14, which lints and fuzzes this library, lacks it. Cheap on
    // purpose: checked arithmetic passes a position at every step of a codec loop.
    static constexpr SourcePosition current(const char* file = __builtin_FILE(),
                                            std::uint32_t line = __builtin_LINE()) {
        return {file, line};
    }
};

/// Ends the process because an expectation is broken that nothing can mend: prints one line,
/// "Fatal error: MESSAGE: file POSITION, line N", on standard error and aborts.
///
/// Threads: any. An installed handler is told first, see `setFatalErrorHandler`.
[[noreturn]] ZAV_EXPORT void fatalError(std::string_view message,
                                        SourcePosition position = SourcePosition::current());

/// Is told of a fatal stop before its line is printed. `message` lives only during the call.
using FatalErrorHandler = void (*)(std::string_view message, SourcePosition position);

/// Installs the handler of this process and returns the one before it (null: none, the default).
///
/// The handler may save what it can, and may end the process itself with its own words and exit
/// code (`std::_Exit`). When it returns, the stop goes on: the line is printed and the process
/// aborts. It runs on the thread that met the fault, in the middle of a node's call, so it must not
/// call into the library. A second stop inside it ends the process at once.
///
/// Threads: any.
ZAV_EXPORT FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler) noexcept;

}  // namespace zav
