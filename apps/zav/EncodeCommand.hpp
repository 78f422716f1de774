#pragma once

#include <optional>
#include <string>

#include "SbcOptions.hpp"
#include "Stream.hpp"

namespace zavtool {

struct EncodeOptions {
    FilePair files;
    std::optional<std::string> codec;  ///< if not given, the output's extension decides
    SbcOptions sbc;
};

/// Encodes a PCM file to SBC frames or Opus packets.
void encode(const EncodeOptions& options, const CommonOptions& common);

}  // namespace zavtool
