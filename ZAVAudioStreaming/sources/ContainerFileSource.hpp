#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav {

/// What the sources of the library's own two file formats share: the open file behind its header,
/// the format read from there, and the targets. The application pulls with `readPackets`.
///
/// Threads: the application's, one at a time; targets are called on it.
class ZAV_EXPORT ContainerFileSource : public AudioStreamOutputable {
 public:
    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 protected:
    /// A file that is positioned behind its header, and the format that the header says.
    struct OpenedFile {
        FileHandle file;
        AudioStreamBasicDescription format;
    };

    explicit ContainerFileSource(OpenedFile opened);

    /// Fills `header` from the start of the file. Throws `AudioFileError::invalidFormat` when the
    /// file is shorter, `std::system_error` when it cannot be read.
    static void readHeader(FileHandle& file, std::span<std::byte> header);

    FileHandle& fileHandle() noexcept { return fileHandle_; }

 private:
    StreamTargets downstreams_;  // released after the file is closed, so it comes first
    FileHandle fileHandle_;
    AudioStreamBasicDescription outDataFormat_;
};

}  // namespace zav
