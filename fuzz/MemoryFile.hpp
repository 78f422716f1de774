#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace zav::fuzz {

/// What must hold; the fuzzer reports the input for which it does not.
inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Path of a file in memory with this content, the same file at every call.
inline std::string memoryFile(const std::uint8_t* data, std::size_t size) {
    static const int memory = ::memfd_create("input", MFD_CLOEXEC);
    require(::ftruncate(memory, 0) == 0);
    require(::pwrite(memory, data, size, 0) == static_cast<ssize_t>(size));
    return "/proc/self/fd/" + std::to_string(memory);
}

}  // namespace zav::fuzz
