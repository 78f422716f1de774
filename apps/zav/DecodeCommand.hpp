#pragma once

#include "Stream.hpp"

namespace zavtool {

/// Decodes raw SBC frames to a 16-bit PCM file.
void decode(const FilePair& files, const CommonOptions& common);

}  // namespace zavtool
