#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Stream.hpp"

namespace zavtool {

struct EncodeOptions {
    FilePair files;
    std::uint32_t bitpool = 32;
    std::optional<std::string> mode;  ///< not given: by the number of channels
    std::uint32_t subbands = 8;
    std::uint32_t blocks = 16;
    std::string allocation = "loudness";
};

/// Encodes a PCM file to raw SBC frames.
void encode(const EncodeOptions& options, const CommonOptions& common);

}  // namespace zavtool
