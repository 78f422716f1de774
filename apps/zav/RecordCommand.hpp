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
    std::optional<double> seconds;  ///< not given: until a signal
    std::uint32_t rate = 48000;     ///< in Hz
    std::uint32_t channels = 1;
    std::optional<std::string> codec;  ///< not given: by the output's extension
    SbcOptions sbc;
};

/// The extensions that `record` takes, by the codec that they choose: ".wav or .au for pcm; ...".
std::string recordableExtensions();

/// Records from the sound server's input to a file.
void record(const RecordOptions& options, const CommonOptions& common);

}  // namespace zavtool
