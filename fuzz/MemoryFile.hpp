#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace zav::fuzz {

/// Aborts if the condition is false, so that the fuzzer reports the input.
inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Writes the content into a file in memory and returns its path. Every call uses the same file.
inline std::string memoryFile(const std::uint8_t* data, std::size_t size) {
    static const int memory = ::memfd_create("input", MFD_CLOEXEC);
    require(::ftruncate(memory, 0) == 0);
    require(::pwrite(memory, data, size, 0) == static_cast<ssize_t>(size));
    return "/proc/self/fd/" + std::to_string(memory);
}

}  // namespace zav::fuzz
