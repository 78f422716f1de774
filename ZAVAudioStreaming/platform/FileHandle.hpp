#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "ZAVAudioStreaming/core/Export.hpp"

namespace zav {

/// An open file. Owns its descriptor, which is not passed on to child processes, and closes it at
/// its end. Errors are `std::system_error`; interrupted and partial calls are carried on.
///
/// Threads: one at a time.
class ZAV_EXPORT FileHandle {
 public:
    /// What to do when the file to be created is there already.
    enum class IfExists { replace, fail };

    /// Regular files only (and disks): EISDIR for a folder, ESPIPE for what has no offsets.
    static FileHandle openForReading(const std::filesystem::path& path);
    /// Makes an empty file, or empties the one that is there, for writing and reading back.
    static FileHandle create(const std::filesystem::path& path, IfExists ifExists);
    /// An existing file, to be written over from its first byte on; what is there stays until then.
    static FileHandle openForWriting(const std::filesystem::path& path);

    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;
    ~FileHandle();

    /// Reads up to `size` bytes from `offset` on; fewer only at the end of the file.
    std::size_t readAt(std::uint64_t offset, void* buffer, std::size_t size) const;
    /// Writes all of `size` bytes from `offset` on; a gap before them reads as zero bytes.
    void writeAt(std::uint64_t offset, const void* bytes, std::size_t size);

    /// Reads up to `size` bytes from the current offset on; fewer only at the end of the file.
    std::size_t read(void* buffer, std::size_t size);
    /// Writes all of `size` bytes at the current offset.
    void write(const void* bytes, std::size_t size);
    /// Where the next `read` or `write` begins, in bytes; `readAt` and `writeAt` leave it alone.
    std::uint64_t offset() const noexcept { return offset_; }

    /// Size of the file in bytes.
    std::uint64_t size() const;

    /// Closes early, to learn of an error that the destructor would pass over.
    void close();

 private:
    explicit FileHandle(int descriptor) : descriptor_(descriptor) {}

    int descriptor_;
    std::uint64_t offset_ = 0;  // counted here: asking for it would be a system call
};

}  // namespace zav
