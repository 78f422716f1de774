#pragma once

#include <filesystem>

#include "Stream.hpp"

namespace zavtool {

struct DecodeOptions {
    std::filesystem::path input;
    std::filesystem::path output;
};

/// Decodes raw SBC frames to a 16-bit PCM file.
void decode(const DecodeOptions& options, const CommonOptions& common);

}  // namespace zavtool
