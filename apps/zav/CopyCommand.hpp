#pragma once

#include <filesystem>

#include "Stream.hpp"

namespace zavtool {

struct CopyOptions {
    std::filesystem::path input;
    std::filesystem::path output;
};

/// Copies packets, undecoded, from one type of file to another.
void copy(const CopyOptions& options, const CommonOptions& common);

}  // namespace zavtool
