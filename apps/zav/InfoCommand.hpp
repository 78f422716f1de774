#pragma once

#include <filesystem>

namespace zavtool {

struct InfoOptions {
    std::filesystem::path file;
    bool isJson = false;
    bool listsPackets = false;
};

/// Describes an audio file on standard output.
void info(const InfoOptions& options);

}  // namespace zavtool
