#include "Failure.hpp"

#include <ZAVAudioStreaming/core/FatalError.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "FileType.hpp"
#include "OutputFile.hpp"
#include "Progress.hpp"

namespace zavtool {
namespace {

struct RunningFiles {
    std::string input;
    std::string output;
};

RunningFiles& runningFiles() {
    static RunningFiles files;
    return files;
}

std::string describeFatalStop(std::string_view message) {
    const RunningFiles& files = runningFiles();
    constexpr std::string_view kWriting = "Writing packets to file failed: ";
    if (message.starts_with(kWriting)) {
        zav::OSStatus status = zav::kAudioFileUnspecifiedError;
        message.remove_prefix(kWriting.size());
        std::from_chars(message.data(), message.data() + message.size(), status);
        return files.output + ": " + writingProblem(status);
    }
    if (message == "Creating audio file failed") {
        return files.output + ": cannot be created in this format; another type of file";
    }
    if (message == "Decoding failed") {
        return files.input + ": a damaged SBC frame; whole frames as an SBC encoder writes them";
    }
    return files.input + ": " +
           (message.empty() ? "a platform call failed without a reason" : std::string(message));
}

void endWithOneLine(std::string_view message, zav::SourcePosition /*position*/) {
    OutputFile::removeUnfinished();
    Progress::wipe();
    std::fprintf(stderr, "zav: %s\n", describeFatalStop(message).c_str());
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

std::string shown(const std::filesystem::path& file) {
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
            return "not an audio file of a known type; " + namesOfAllTypes();
        case zav::kAudioFileUnsupportedDataFormatError:
            return "audio in an unknown encoding; PCM, float, A-law or mu-law";
        case zav::kAudioFileInvalidFileError:
            return "damaged; a file that is whole";
        case zav::kAudioFileFileNotFoundError:
            return "no such file; the name of an audio file";
        case zav::kAudioFileNotAFileError:
            return "a folder or a pipe; the name of an audio file";
        case zav::kAudioFilePermissionDeniedError:
            return "no permission to read it; a file that you may read";
        default:
            return "cannot be read, status " + zav::statusText(status) + "; a readable file";
    }
}

std::string writingProblem(zav::OSStatus status) {
    switch (status) {
        case zav::kAudioFileDiskFullError:
            return "the disk is full or the file too large for it; a disk with more room";
        case zav::kAudioFileDoesNotAllow64BitDataSizeError:
            return "more than 4 GiB, which this type cannot hold; .rf64, .w64 or .caf";
        case zav::kAudioFilePermissionDeniedError:
        case zav::kAudioFileWriteProtectedError:
            return "no permission to write it; a folder that you may write to";
        default:
            return "cannot be written, status " + zav::statusText(status) +
                   "; another place or type of file";
    }
}

void reportFatalStopsFor(const std::filesystem::path& input, const std::filesystem::path& output) {
    runningFiles() = {shown(input), shown(output)};
    zav::setFatalErrorHandler(endWithOneLine);
}

}  // namespace zavtool
