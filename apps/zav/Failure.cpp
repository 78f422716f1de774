#include "Failure.hpp"

#include <ZAVAudioStreaming/core/FatalError.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <system_error>

#include "FileType.hpp"
#include "OutputFile.hpp"
#include "StatusLine.hpp"

namespace zavtool {
namespace {

// libopus's own codes, from its header opus_defines.h.
constexpr std::int32_t kOpusBufferTooSmall = -2;
constexpr std::int32_t kOpusInvalidPacket = -4;

struct RunningFiles {
    std::string input;
    std::string output;
};

RunningFiles& runningFiles() {
    static RunningFiles files;
    return files;
}

/// Names the packages that compressed files need. Empty if the module for compressed files is
/// installed.
std::string hintAtModule() {
    return canReadCompressedFiles()
               ? ""
               : " (compressed files need libZAVAudioStreamingFFmpeg.so beside the library, and "
                 "FFmpeg's libraries: Debian's packages libavformat59 and libavcodec59)";
}

/// Describes a fatal stop that a packet of the input caused. Empty for any other stop.
std::string describeBadPacket(const zav::FatalStop& stop) {
    if (stop.cause == zav::FatalCause::sbcDecoding) {
        return "a damaged SBC frame; use whole frames as an SBC encoder writes them";
    }
    if (stop.cause == zav::FatalCause::opusDecoding && stop.code == kOpusInvalidPacket) {
        return "a damaged Opus packet; use packets as an Opus encoder writes them";
    }
    if (stop.cause == zav::FatalCause::opusDecoding && stop.code == kOpusBufferTooSmall) {
        return "an Opus packet of more than 60 ms; use packets of 60 ms at most";
    }
    return "";
}

/// Describes an `errno` from writing a container file.
std::string containerProblem(std::int32_t code) {
    if (code == ENOSPC || code == EDQUOT || code == EFBIG) {
        return writingProblem(zav::kAudioFileDiskFullError);
    }
    return "cannot be written: " + std::generic_category().message(code) + "; use another disk";
}

/// Describes a fatal stop that writing the output caused. Empty for any other stop.
std::string describeWriting(const zav::FatalStop& stop) {
    switch (stop.cause) {
        case zav::FatalCause::fileWriting:
            return writingProblem(stop.code);
        case zav::FatalCause::fileCreation:
            return "cannot be created in this format; use another type of file";
        case zav::FatalCause::containerOpening:
        case zav::FatalCause::containerWriting:
            return containerProblem(stop.code);
        default:
            return "";
    }
}

std::string describeFatalStop(const zav::FatalStop& stop) {
    const RunningFiles& files = runningFiles();
    if (const std::string problem = describeWriting(stop); !problem.empty()) {
        return files.output + ": " + problem;
    }
    if (const std::string problem = describeBadPacket(stop); !problem.empty()) {
        return files.input + ": " + problem;
    }
    return files.input + ": " +
           (stop.text.empty() ? "a platform call failed without a reason" : std::string(stop.text));
}

void endWithOneLine(const zav::FatalStop& stop) {
    OutputFile::removeUnfinished();
    StatusLine::wipe();
    std::fprintf(stderr, "zav: %s%s\n", describeFatalStop(stop).c_str(),
                 OutputFile::oneHasAppeared()
                     ? " (the recording is kept, except for at most its last two seconds)"
                     : "");
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

std::string shown(const std::filesystem::path& file) {
    if (file.empty()) {
        return "''";
    }
    std::string text;
    for (const char letter : file.string()) {
        const auto code = static_cast<unsigned char>(letter);
        if (code < 0x20 || code == 0x7F) {
            std::array<char, 5> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\x%02X", code);
            text += escaped.data();
        } else {
            text += letter;
        }
    }
    return text;
}

std::string readingProblem(zav::OSStatus status) {
    switch (status) {
        case zav::kAudioFileUnsupportedFileTypeError:
            return "not an audio file of a known type; use one that 'zav info --help' lists" +
                   hintAtModule();
        case zav::kAudioFileUnsupportedDataFormatError:
            return "audio in an unknown encoding; use one that 'zav info --help' lists" +
                   hintAtModule();
        case zav::kAudioFileInvalidFileError:
            return "damaged; use a file that is whole";
        case zav::kAudioFileFileNotFoundError:
            return "no such file; give the name of an audio file";
        case zav::kAudioFileNotAFileError:
            return "a folder, a pipe or a device; give the name of an audio file";
        case zav::kAudioFilePermissionDeniedError:
            return "no permission to read it; use a file that you may read";
        default:
            return "cannot be read, status " + zav::statusText(status) + "; use a readable file";
    }
}

std::string readingProblem(const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory ||
        error.code() == std::errc::not_a_directory) {
        return readingProblem(zav::kAudioFileFileNotFoundError);
    }
    if (error.code() == std::errc::is_a_directory || error.code() == std::errc::invalid_seek) {
        return readingProblem(zav::kAudioFileNotAFileError);
    }
    if (error.code() == std::errc::permission_denied) {
        return readingProblem(zav::kAudioFilePermissionDeniedError);
    }
    return std::string("cannot be read: ") + error.what() + "; use a readable file";
}

std::string writingProblem(zav::OSStatus status) {
    switch (status) {
        case zav::kAudioFileDiskFullError:
            return "the disk is full or the file is too large for it; use a disk with more room";
        case zav::kAudioFileDoesNotAllow64BitDataSizeError:
            return "more than 4 GiB, which this type cannot hold; use .rf64, .w64 or .caf";
        case zav::kAudioFileParameterError:
            return "packets that this type cannot hold, such as empty ones; use .zopus for those";
        case zav::kAudioFileUnsupportedFileTypeError:
            return "a type that cannot be written here; use another one" + hintAtModule();
        case zav::kAudioFilePermissionDeniedError:
        case zav::kAudioFileWriteProtectedError:
            return "no permission to write it; use a folder that you may write to";
        default:
            return "cannot be written, status " + zav::statusText(status) +
                   "; use another place or type of file";
    }
}

void reportFatalStopsFor(const std::filesystem::path& input, const std::filesystem::path& output) {
    runningFiles() = {shown(input), shown(output)};
    zav::setFatalErrorHandler(endWithOneLine);
}

void finishStandardOutput() {
    std::cout.flush();
    if (!std::cout || std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw Failure("standard output",
                      "cannot be written; use a terminal, file or pipe with room");
    }
}

}  // namespace zavtool
