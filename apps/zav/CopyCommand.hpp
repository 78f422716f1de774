#pragma once

#include "Stream.hpp"

namespace zavtool {

/// Copies packets from one type of file to another without decoding them.
void copy(const FilePair& files, const CommonOptions& common);

}  // namespace zavtool
