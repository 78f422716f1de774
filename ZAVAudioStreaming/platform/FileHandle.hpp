#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// An open file. Owns its descriptor, closes it in the destructor, and does not pass it on to child
/// processes. Interrupted and partial system calls are continued. Errors are thrown as
/// `std::system_error`.
///
/// Threads: one at a time.
class ZAV_EXPORT FileHandle {
 public:
    /// What `create` does if the file exists already.
    enum class IfExists { replace, fail };

    /// Opens a regular file or a block device. Throws EISDIR for a folder and ESPIPE for a file
    /// without offsets, such as a pipe.
    static FileHandle openForReading(const std::filesystem::path& path);
    /// Makes an empty file for writing and reading. With `replace`, an existing file is emptied.
    /// With `fail`, throws EEXIST if the file exists.
    static FileHandle create(const std::filesystem::path& path, IfExists ifExists);
    /// Opens an existing file to overwrite it, starting at its first byte. Its bytes stay until
    /// they are overwritten.
    static FileHandle openForWriting(const std::filesystem::path& path);

    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;
    ~FileHandle();

    /// Reads `size` bytes, starting at `offset`. Returns the number of bytes read, which is less
    /// than `size` only at the end of the file.
    std::size_t readAt(std::uint64_t offset, void* buffer, std::size_t size) const;
    /// Writes all of `size` bytes, starting at `offset`. A gap before these bytes reads as zeros.
    void writeAt(std::uint64_t offset, const void* bytes, std::size_t size);

    /// Reads `size` bytes, starting at the current offset. Returns the number of bytes read, which
    /// is less than `size` only at the end of the file.
    std::size_t read(void* buffer, std::size_t size);
    /// Writes all of `size` bytes at the current offset.
    void write(const void* bytes, std::size_t size);
    /// Where the next `read` or `write` begins, in bytes. `readAt` and `writeAt` do not change it.
    std::uint64_t offset() const noexcept { return offset_; }

    /// Size of the file in bytes.
    std::uint64_t size() const;

    /// Closes the file early, to report an error that the destructor would ignore.
    void close();

 private:
    explicit FileHandle(int descriptor) : descriptor_(descriptor) {}

    int descriptor_;
    std::uint64_t offset_ = 0;  // kept here to save a system call
};

}  // namespace zav
