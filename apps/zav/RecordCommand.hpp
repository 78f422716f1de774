#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "SbcOptions.hpp"
#include "Stream.hpp"

namespace zavtool {

struct RecordOptions {
    std::filesystem::path output;
    std::optional<double> seconds;  ///< if not given, until a signal
    std::uint32_t rate = 48000;     ///< in Hz
    std::uint32_t channels = 1;
    std::optional<std::string> codec;  ///< if not given, the output's extension decides
    SbcOptions sbc;
};

/// Records from the sound server's input to a file.
void record(const RecordOptions& options, const CommonOptions& common);

}  // namespace zavtool
