#pragma once

#include "Stream.hpp"

namespace zavtool {

/// Copies packets, undecoded, from one type of file to another.
void copy(const FilePair& files, const CommonOptions& common);

}  // namespace zavtool
