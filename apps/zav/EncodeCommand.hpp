#pragma once

#include <optional>
#include <string>

#include "SbcOptions.hpp"
#include "Stream.hpp"

namespace zavtool {

struct EncodeOptions {
    FilePair files;
    std::optional<std::string> codec;  ///< not given: by the output's extension
    SbcOptions sbc;
};

/// Encodes a PCM file to SBC frames or Opus packets.
void encode(const EncodeOptions& options, const CommonOptions& common);

}  // namespace zavtool
