#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// A place in the sources. Some stops have a fixed name and number instead. As a default argument,
/// `current()` returns the place of the caller.
struct SourcePosition {
    const char* file;  ///< file name; `fatalError` removes the folder
    std::uint32_t line;

    // Clang 14 lints and fuzzes this library, and it has no std::source_location. A position is
    // cheap to make on purpose: checked arithmetic passes one at every step of a codec loop.
    static constexpr SourcePosition current(const char* file = __builtin_FILE(),
                                            std::uint32_t line = __builtin_LINE()) {
        return {file, line};
    }
};

/// Why a process stops. The comment of a cause names its `FatalStop::code` after the semicolon. The
/// code is 0 for causes without a semicolon.
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

/// Describes a fatal stop to a handler. Valid only during the call.
struct FatalStop {
    FatalCause cause;
    std::int32_t code;      ///< see `FatalCause`
    std::string_view text;  ///< may be empty
    SourcePosition position;
};

/// Ends the process after a fault that cannot be repaired. Calls the installed handler. Then prints
/// one line on standard error ("Fatal error: TEXT: file POSITION, line N") and aborts. Allocates
/// nothing.
///
/// Threads: any. A stop on a second thread waits until the first one has ended the process.
[[noreturn]] ZAV_EXPORT void fatalError(FatalCause cause, std::string_view text,
                                        SourcePosition position = SourcePosition::current());

/// Does the same with a code. `FatalCause` names the kind of code for each cause.
[[noreturn]] ZAV_EXPORT void fatalError(FatalCause cause, std::int32_t code, std::string_view text,
                                        SourcePosition position = SourcePosition::current());

/// Receives a fatal stop before its line is printed.
using FatalErrorHandler = std::function<void(const FatalStop& stop)>;

/// Installs the handler of this process and returns the previous handler. An empty handler, the
/// default, means that there is none.
///
/// The handler may save data. It may also end the process itself, with its own message and exit
/// code (`std::_Exit`). If the handler returns, `fatalError` prints the line and aborts. The
/// handler runs on the thread of the fault, in the middle of a node's call. It must not throw. It
/// must not call the library, including this function. It must not wait for another thread, because
/// that thread may have a fault, too, and wait for the end of the process. If a second fault
/// happens inside the handler, the handler is not called again: `fatalError` prints the line of the
/// second fault and aborts.
///
/// Threads: any. A call that comes while a handler runs waits for the end of the process.
ZAV_EXPORT FatalErrorHandler setFatalErrorHandler(FatalErrorHandler handler);

}  // namespace zav
