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

/// What the sinks of the library's own two file formats share. The file is made, empty, with the
/// node; it is opened and gets its header at flow start and is closed at flow end. A later flow
/// writes over it from its first byte on without shortening it: what is longer stays behind it.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT ContainerFileSink : public AudioStreamInputable {
 public:
    const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    /// Opens the file and writes the header; a fatal stop when either fails.
    void onAudioStreamFlowStart() override;
    /// Closes the file; a failure to close is ignored. A fatal stop when none is open.
    void onAudioStreamFlowEnd() override;

 protected:
    /// Creates the file, or empties the one that is there. Throws `AudioFileError::create`.
    ContainerFileSink(const std::shared_ptr<AudioStreamOutputable>& upstream,
                      std::filesystem::path fileUrl);

    /// Whether the upstream's rate is one of these, in Hz, and whether it has one or two channels;
    /// each asks for the format anew.
    static bool hasRateOf(std::span<const double> ratesInHz, const AudioStreamOutputable& upstream);
    static bool isMonoOrStereo(const AudioStreamOutputable& upstream);

    /// Writes the header for the upstream's format of this moment. Throws `std::system_error`.
    virtual void writeFileMeta() = 0;

    /// Fills in the fields that both headers have; a rate or channel count that does not fit its
    /// field is a fatal stop.
    void fillCommonFields(ContainerFileHeader& header) const;

    /// The open file. None open is a fatal stop.
    FileHandle& fileHandle();

 private:
    std::filesystem::path fileURL_;
    std::optional<FileHandle> fileHandle_;
    UpstreamLink upstream_;
};

}  // namespace zav
