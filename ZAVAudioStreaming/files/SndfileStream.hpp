#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <span>
#include <vector>

#include "ZAVAudioStreaming/files/PcmFileStructure.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// A libsndfile handle over a `FileHandle`, which it owns.
///
/// libsndfile reads and writes through our callbacks. They keep the reason of a failed system call,
/// and they can edit headers on the way in and out.
class SndfileStream {
 public:
    using HeaderEditor = std::function<void(std::span<std::byte>)>;

    /// Opens for reading and fills `info`. `edits` apply while libsndfile parses the header. Throws
    /// 'dta?' if libsndfile refuses the file and 'fmt?' if it does not know the encoding.
    SndfileStream(FileHandle file, std::vector<ByteEdit> edits, SF_INFO& info);
    /// Opens an empty file for writing in the format of `info`. `editHeader` can change every
    /// header in place before the header is written. `editHeader` can be empty.
    SndfileStream(FileHandle file, HeaderEditor editHeader, SF_INFO& info);
    ~SndfileStream();

    SndfileStream(const SndfileStream&) = delete;
    SndfileStream& operator=(const SndfileStream&) = delete;

    const FileHandle& file() const noexcept { return file_; }
    /// The byte order of the samples in the file.
    bool isBigEndian();

    void seek(std::uint64_t frame);
    /// Both functions move whole frames; `size` is in bytes. They return the bytes moved, which are
    /// fewer than `size` at the end of the file or after a failed system call. `throwFileError`
    /// then throws the error of that call.
    std::size_t readRaw(void* buffer, std::size_t size);
    std::size_t writeRaw(const void* bytes, std::size_t size);

    /// Brings the header in the file up to date.
    void updateHeader();

    /// Throws the error of the first system call that has failed since the last throw, if any.
    void throwFileError();
    /// Closes the libsndfile handle, appends `trailer`, and closes the file.
    void close(std::span<const std::byte> trailer);

 private:
    friend struct SndfileCallbacks;

    void open(int mode, SF_INFO& info);
    std::size_t readAtPosition(std::byte* buffer, std::size_t size);
    std::size_t writeAtPosition(const std::byte* bytes, std::size_t size);
    /// Returns the bytes written. On a full disk, returns the bytes by which the file has grown.
    std::size_t appendOrOverwrite(const std::byte* bytes, std::size_t size);
    void keepFileError();

    FileHandle file_;
    std::vector<ByteEdit> edits_;
    HeaderEditor editHeader_;
    std::uint64_t position_ = 0;  // byte offset of libsndfile's next read or write
    std::uint64_t end_ = 0;       // byte offset after the last byte written
    std::exception_ptr fileError_;
    SNDFILE* sndfile_ = nullptr;
};

}  // namespace zav::detail
