#pragma once

#include <ZAVAudioStreaming/core/OSStatus.hpp>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace zavtool {

/// A file's name for a message: control characters, which could play tricks on a terminal, stand as
/// "\xNN".
std::string shown(const std::filesystem::path& file);

/// Ends the run with exit code 1 and one line, "zav: FILE: what was found; what would be accepted".
class Failure : public std::runtime_error {
 public:
    Failure(const std::filesystem::path& file, const std::string& what)
        : std::runtime_error(shown(file) + ": " + what) {}
};

/// The same with exit code 2: the command line asks for something that cannot be.
class UsageFailure : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// What a status of the file service means when a file is opened or read, and what would do.
std::string readingProblem(zav::OSStatus status);
/// The same for a file that is read without the service.
std::string readingProblem(const std::system_error& error);
/// The same for a file being created or written.
std::string writingProblem(zav::OSStatus status);

/// Names the two files of this run, for the line that a fatal stop of the library ends with.
/// From here on such a stop removes the unfinished output and exits with code 1.
void reportFatalStopsFor(const std::filesystem::path& input, const std::filesystem::path& output);

/// Throws when what was printed has not all been written.
void finishStandardOutput();

}  // namespace zavtool
