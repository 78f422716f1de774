#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

/// Other people's programs, run by the shell.
namespace zav::test {

/// What the command prints on standard output (`2>&1` adds the rest); a failure of the command
/// fails the test.
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

/// What ffprobe has to say against a file. That raw streams do not tell their duration is no fault
/// of the writer.
inline std::string complaintsOf(const std::filesystem::path& path) {
    return outputOf("ffprobe -v warning " + quoted(path) +
                    " 2>&1 | grep -vE '[[](aac|ac3|amr) @.*Estimating duration' || true");
}

}  // namespace zav::test
