#pragma once

#include <filesystem>
#include <optional>

#include "Stream.hpp"

namespace zavtool {

struct PlayOptions {
    std::filesystem::path input;
    std::optional<double> delayInSeconds;  ///< of audio that is queued before the start
};

/// Plays an audio file on the sound server's output.
void play(const PlayOptions& options, const CommonOptions& common);

}  // namespace zavtool
