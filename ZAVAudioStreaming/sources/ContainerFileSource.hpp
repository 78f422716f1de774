#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/StreamTargets.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav {

/// Base of the sources for the library's own two file formats. It holds the open file, the format
/// from its header, and the targets. The application pulls with `readPackets`.
///
/// Threads: the application's threads, one at a time. Targets are called on the same thread.
class ZAV_EXPORT ContainerFileSource : public AudioStreamOutputable {
 public:
    AudioStreamBasicDescription outDataFormat() const override { return outDataFormat_; }
    const StreamTargets& downstreams() const noexcept { return downstreams_; }
    void addStreamTarget(std::shared_ptr<AudioStreamInputable> target) override;

 protected:
    /// An open file, positioned at the end of its header, and the format from that header.
    struct OpenedFile {
        FileHandle file;
        AudioStreamBasicDescription format;
    };

    explicit ContainerFileSource(OpenedFile opened);

    /// Fills `header` from the start of the file. Throws `AudioFileError::invalidFormat` if the
    /// file is shorter, and `std::system_error` if it cannot be read.
    static void readHeader(FileHandle& file, std::span<std::byte> header);

    FileHandle& fileHandle() noexcept { return fileHandle_; }

 private:
    StreamTargets downstreams_;  // first: the file is closed before the targets are released
    FileHandle fileHandle_;
    AudioStreamBasicDescription outDataFormat_;
};

}  // namespace zav
