#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Stream.hpp"

namespace zavtool {

struct EncodeOptions {
    FilePair files;
    std::optional<std::string> codec;  ///< not given: by the output's extension
    // Of SBC; what is not given is the usual value.
    std::optional<std::uint32_t> bitpool;
    std::optional<std::string> mode;
    std::optional<std::uint32_t> subbands;
    std::optional<std::uint32_t> blocks;
    std::optional<std::string> allocation;
};

/// Encodes a PCM file to SBC frames or Opus packets.
void encode(const EncodeOptions& options, const CommonOptions& common);

}  // namespace zavtool
