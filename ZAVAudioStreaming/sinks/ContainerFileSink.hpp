#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "ZAVAudioStreaming/containers/ContainerFileHeader.hpp"
#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav {

/// Base of the sinks for the library's own two file formats. The constructor creates the empty
/// file. Flow start opens it and writes the header. Flow end closes it. A later flow overwrites the
/// file from its first byte and does not shorten the file. If the earlier flow was longer, the end
/// of its data stays.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ContainerFileSink : public AudioStreamInputable {
 public:
    const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    /// Opens the file and writes the header. Fatal if either fails.
    void onAudioStreamFlowStart() override;
    /// Closes the file and ignores a failure to close. Fatal if no file is open.
    void onAudioStreamFlowEnd() override;

 protected:
    /// Creates the file, or empties an existing one. Throws `AudioFileError::create` if this fails.
    ContainerFileSink(const std::shared_ptr<AudioStreamOutputable>& upstream,
                      std::filesystem::path fileUrl);

    /// Whether `ratesInHz` contains the upstream's rate. Reads the format again.
    static bool hasRateOf(std::span<const double> ratesInHz, const AudioStreamOutputable& upstream);
    /// Whether the upstream has one or two channels. Reads the format again.
    static bool isMonoOrStereo(const AudioStreamOutputable& upstream);

    /// Writes the header for the upstream's current format. Throws `std::system_error`.
    virtual void writeFileMeta() = 0;

    /// Fills in the fields that both headers have. Fatal if the rate or the number of channels does
    /// not fit its field.
    void fillCommonFields(ContainerFileHeader& header) const;

    /// The open file. Fatal if no file is open.
    FileHandle& fileHandle();

 private:
    std::filesystem::path fileURL_;
    std::optional<FileHandle> fileHandle_;
    UpstreamLink upstream_;
};

}  // namespace zav
