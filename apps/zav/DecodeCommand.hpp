#pragma once

#include "Stream.hpp"

namespace zavtool {

/// Decodes SBC frames or Opus packets to a 16-bit PCM file.
void decode(const FilePair& files, const CommonOptions& common);

}  // namespace zavtool
