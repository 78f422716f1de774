#pragma once

#include <ZAVAudioStreaming/core/OSStatus.hpp>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace zavtool {

/// A file's name for a message. Control characters, which a terminal would obey, become "\xNN". An
/// empty name becomes "''".
std::string shown(const std::filesystem::path& file);

/// Ends the run with exit code 1 and one line, "zav: FILE: what was found; what to use".
class Failure : public std::runtime_error {
 public:
    Failure(const std::filesystem::path& file, const std::string& what)
        : std::runtime_error(shown(file) + ": " + what) {}
};

/// Ends the run as `Failure` does, but with exit code 2. For a command line that cannot be carried
/// out.
class UsageFailure : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Explains a status of the file service for a file that is opened or read: what was found and what
/// to use instead.
std::string readingProblem(zav::OSStatus status);
/// Explains an error of a file that is read without the file service.
std::string readingProblem(const std::system_error& error);
/// Explains a status of the file service for a file that is created or written.
std::string writingProblem(zav::OSStatus status);

/// Stores the names of the files of this run. After this call, a fatal stop of the library removes
/// the unfinished output, prints one line that names the file, and exits with code 1.
void reportFatalStopsFor(const std::filesystem::path& input, const std::filesystem::path& output);

/// Throws `Failure` if standard output could not be written completely.
void finishStandardOutput();

}  // namespace zavtool
