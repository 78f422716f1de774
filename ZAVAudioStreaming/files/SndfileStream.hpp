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

/// A libsndfile handle over a `FileHandle`. libsndfile reads and writes through callbacks of ours,
/// so that a failed system call keeps its reason, and headers can be mended on their way, those
/// that it parses as well as those that it writes.
class SndfileStream {
 public:
    using HeaderEditor = std::function<void(std::span<std::byte>)>;

    /// Opens for reading, `info` is filled. `edits` hold while libsndfile parses the header.
    /// Throws 'dta?' when it cannot make sense of the file.
    SndfileStream(FileHandle file, std::vector<ByteEdit> edits, SF_INFO& info);
    /// Opens an empty file for writing as `info` says. `editHeader` may change every header in
    /// place before it goes into the file; it can be empty.
    SndfileStream(FileHandle file, HeaderEditor editHeader, SF_INFO& info);
    ~SndfileStream();

    SndfileStream(const SndfileStream&) = delete;
    SndfileStream& operator=(const SndfileStream&) = delete;

    const FileHandle& file() const noexcept { return file_; }
    /// Of the samples in the file.
    bool isBigEndian();

    void seek(std::uint64_t frame);
    /// Both return the bytes moved, fewer than asked for at the end of the file or when writing
    /// fails; `throwFileError` then tells why. `size` is whole frames.
    std::size_t readRaw(void* buffer, std::size_t size);
    std::size_t writeRaw(const void* bytes, std::size_t size);

    /// Brings the header in the file up to date.
    void updateHeader();

    /// Throws what the last failed system call threw, if there was one since the last throw.
    void throwFileError();
    /// Ends libsndfile's work on the file, appends `trailer`, and closes it.
    void close(std::span<const std::byte> trailer);

 private:
    friend struct SndfileCallbacks;

    void open(int mode, SF_INFO& info);
    std::size_t readAtPosition(std::byte* buffer, std::size_t size);
    std::size_t writeAtPosition(const std::byte* bytes, std::size_t size);
    std::size_t appendOrOverwrite(const std::byte* bytes, std::size_t size);
    void keepFileError();

    FileHandle file_;
    std::vector<ByteEdit> edits_;
    HeaderEditor editHeader_;
    std::uint64_t position_ = 0;
    std::uint64_t end_ = 0;  ///< of what has been written
    std::exception_ptr fileError_;
    SNDFILE* sndfile_ = nullptr;
};

}  // namespace zav::detail
