#pragma once

extern "C" {
#include <libavformat/avio.h>
}

#include <cstdint>
#include <exception>

#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Lets libavformat read and write a `FileHandle`, which it owns. The callbacks keep the reason of
/// a failed system call.
class AvioFile {
 public:
    enum class Access { read, write };

    /// libavformat's position 0 is at byte `start` of the file. libavformat never reads the bytes
    /// before `start`.
    AvioFile(FileHandle file, Access access, std::uint64_t start = 0);
    ~AvioFile();

    AvioFile(const AvioFile&) = delete;
    AvioFile& operator=(const AvioFile&) = delete;

    AVIOContext* context() noexcept { return context_; }
    FileHandle& file() noexcept { return file_; }
    std::uint64_t start() const noexcept { return start_; }

    /// Hides the file's size from libavformat. Otherwise libavformat prints a warning about each
    /// packet that exceeds the file. The warning has no context that we could silence.
    void hideSize() noexcept { isSizeHidden_ = true; }

    /// Writes out what libavformat has buffered. Throws like `throwFileError`.
    void flush();
    /// Throws the error of the first system call that has failed since the last throw, if any.
    void throwFileError();

 private:
    static int read(void* user, std::uint8_t* buffer, int size);
    static int write(void* user, std::uint8_t* bytes, int size);
    static std::int64_t seek(void* user, std::int64_t offset, int whence);

    template <class Result, class Call>
    static Result guarded(void* user, Call call) noexcept;

    FileHandle file_;
    bool isSizeHidden_ = false;
    std::uint64_t start_;         // bytes before libavformat's position 0
    std::uint64_t position_ = 0;  // libavformat's, in bytes
    std::exception_ptr fileError_;
    AVIOContext* context_;
};

}  // namespace zav::detail
