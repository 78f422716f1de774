#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

/// Runs other programs in the shell.
namespace zav::test {

/// Returns what the command prints on standard output (with `2>&1`, also on standard error). If the
/// command fails, so does the test.
inline std::string outputOf(const std::string& command) {
    std::string output;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return output;
    }
    std::array<char, 65536> piece{};
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), pipe)) {
        output.append(piece.data(), size);
    }
    EXPECT_EQ(::pclose(pipe), 0) << command << "\n" << output.substr(0, 2000);
    return output;
}

inline std::vector<std::byte> bytesOutputOf(const std::string& command) {
    const std::string output = outputOf(command);
    const auto bytes = std::as_bytes(std::span(output));
    return {bytes.begin(), bytes.end()};
}

inline std::string quoted(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

/// The frames of a file, as ffmpeg decodes them: without priming and padding.
inline std::uint64_t framesByFfmpeg(const std::filesystem::path& path, std::uint32_t channels) {
    return std::stoull(outputOf("ffmpeg -nostdin -v error -i " + quoted(path) +
                                " -map 0:a:0 -f s16le - | wc -c")) /
           2 / channels;
}

/// The complaints of ffprobe about a file. It also complains that raw streams contain no duration,
/// which is no fault of the writer and left out.
inline std::string complaintsOf(const std::filesystem::path& path) {
    return outputOf("ffprobe -v warning " + quoted(path) +
                    " 2>&1 | grep -vE '[[](aac|ac3|amr) @.*Estimating duration' || true");
}

}  // namespace zav::test
