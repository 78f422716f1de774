#pragma once

extern "C" {
#include <libavformat/avio.h>
}

#include <cstdint>
#include <exception>

#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// libavformat's view of a `FileHandle`: it reads and writes through callbacks of ours, so that a
/// failed system call keeps its reason.
class AvioFile {
 public:
    enum class Access { read, write };

    /// What stands before `start` is not shown: positions count from there.
    AvioFile(FileHandle file, Access access, std::uint64_t start = 0);
    ~AvioFile();

    AvioFile(const AvioFile&) = delete;
    AvioFile& operator=(const AvioFile&) = delete;

    AVIOContext* context() noexcept { return context_; }
    FileHandle& file() noexcept { return file_; }
    std::uint64_t start() const noexcept { return start_; }

    /// No longer tells the file's size, which headers are held against. libavformat prints that a
    /// large packet goes beyond it, of no context that could be silenced.
    void hideSize() noexcept { isSizeHidden_ = true; }

    /// Writes out what libavformat has buffered. Throws as `throwFileError` does.
    void flush();
    /// Throws what the first failed system call threw, if there was one since the last throw.
    void throwFileError();

 private:
    static int read(void* user, std::uint8_t* buffer, int size);
    static int write(void* user, std::uint8_t* bytes, int size);
    static std::int64_t seek(void* user, std::int64_t offset, int whence);

    template <class Result, class Call>
    static Result guarded(void* user, Call call) noexcept;

    FileHandle file_;
    bool isSizeHidden_ = false;
    std::uint64_t start_;
    std::uint64_t position_ = 0;
    std::exception_ptr fileError_;
    AVIOContext* context_;
};

}  // namespace zav::detail
