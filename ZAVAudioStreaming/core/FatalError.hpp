#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A place in the sources. For some stops it is a fixed name and number instead. As a default
/// argument, `current()` is the place of the caller.
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

/// Why a process stops. Each cause has one kind of `FatalStop::code`, which is 0 where none is
/// named.
enum class FatalCause : std::uint8_t {
    misuse,            ///< the application broke a rule of the library, such as a null target
    formatMismatch,    ///< audio does not have the format that its node was made for
    damagedFile,       ///< a container file is cut off, or has parameters that do not exist
    sbcEncoding,       ///< libsbc refused PCM; libsbc's result
    sbcDecoding,       ///< libsbc refused a frame; libsbc's result
    opusEncoding,      ///< libopus refused PCM or made no encoder; libopus's result
    opusDecoding,      ///< libopus refused a packet or made no decoder; libopus's result
    fileCreation,      ///< the file service could not create a file; its `OSStatus`
    fileWriting,       ///< the file service could not write packets; its `OSStatus`
    fileProperty,      ///< the file service could not report or set a property; its `OSStatus`
    containerOpening,  ///< a container file could not be opened or given a header; `errno`
    containerWriting,  ///< a container file could not be written; `errno`
    audioQueue,        ///< a call of the audio queue service failed; its `OSStatus`
    outOfMemory,       ///< memory ran out in the middle of a stream
    arithmetic,        ///< a size or count does not fit its type, or is divided by zero
    brokenService,     ///< a service below the nodes broke its own contract
};

/// What a handler learns about a fatal stop. Valid only during the call.
struct FatalStop {
    FatalCause cause;
    std::int32_t code;      ///< see `FatalCause`
    std::string_view text;  ///< may be empty
    SourcePosition position;
};

/// Ends the process because an expectation is broken that nothing can mend. Calls the installed
/// handler, prints one line, "Fatal error: TEXT: file POSITION, line N", on standard error, and
/// aborts. Allocates nothing.
///
/// Threads: any. A stop on a second thread waits until the first one has ended the process.
[[noreturn]] ZAV_EXPORT void fatalError(FatalCause cause, std::string_view text,
                                        SourcePosition position = SourcePosition::current());

/// The same with the code that belongs to the cause.
[[noreturn]] ZAV_EXPORT void fatalError(FatalCause cause, std::int32_t code, std::string_view text,
                                        SourcePosition position = SourcePosition::current());

/// Receives a fatal stop before its line is printed.
using FatalErrorHandler = std::function<void(const FatalStop& stop)>;

/// Installs the handler of this process and returns the previous one (empty: none, the default).
///
/// The handler may save what it can, and may end the process itself with its own words and exit
/// code (`std::_Exit`). When it returns, the stop goes on: the line is printed and the process
/// aborts. It runs on the thread that met the fault, in the middle of a node's call. It must not
/// throw, call into the library (this function included), or wait for another thread, which may
/// have met a fault itself and wait for the end of the process. A second stop inside the handler
/// does not call it again: that stop's line is printed and the process aborts.
///
/// Threads: any. While a handler runs, it waits for the end of the process.
ZAV_EXPORT FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler);

}  // namespace zav
