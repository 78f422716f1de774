#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Reads a file from front to back in large pieces. `file` must outlive the window.
class FileWindow {
 public:
    explicit FileWindow(const FileHandle& file) : file_(file), fileSize_(file.size()) {}

    std::uint64_t fileSize() const noexcept { return fileSize_; }

    /// Returns `size` bytes, starting at `offset`. Returns fewer bytes at the end of the file. The
    /// bytes are valid until the next call.
    std::span<const std::byte> at(std::uint64_t offset, std::size_t size) {
        if (offset < start_ || offset + size > start_ + bytes_.size()) {
            bytes_.resize(std::max(size, kStep));
            bytes_.resize(offset < fileSize_ ? file_.readAt(offset, bytes_.data(), bytes_.size())
                                             : 0);
            start_ = offset;
        }
        const std::size_t from = offset - start_;
        return std::span(bytes_).subspan(from, std::min(size, bytes_.size() - from));
    }

 private:
    static constexpr std::size_t kStep = 262144;

    const FileHandle& file_;
    std::uint64_t fileSize_;
    std::uint64_t start_ = 0;
    std::vector<std::byte> bytes_;
};

}  // namespace zav::detail
