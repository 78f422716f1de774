#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "ZAVAudioStreaming/core/AudioStreamInputable.hpp"
#include "ZAVAudioStreaming/core/AudioStreamOutputable.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/UpstreamLink.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"

namespace zav {

/// Writes the packets that it receives into an audio file of a chosen type. The file is created at
/// flow start, in the format that the upstream has then, and closed at flow end; chunks outside a
/// flow are dropped silently.
///
/// Packets are numbered on over flows: a second flow replaces the file, but its first packet gets
/// the index after the last one of the flow before, with silence in front of it where the type can
/// have that.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT FileSink : public AudioStreamInputable {
 public:
    /// Touches no file and checks no format: what the type cannot hold shows at flow start.
    FileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
             std::filesystem::path fileUrl, AudioFileTypeID fileFormat);
    ~FileSink() override;

    const std::filesystem::path& fileURL() const noexcept { return fileURL_; }
    AudioFileTypeID fileFormat() const noexcept { return fileFormat_; }

    /// Seconds written so far; 0 while no file is open.
    double estimatedDuration() const;

    /// Stores bytes that the file's decoder will need. A fatal stop when no file is open (call it
    /// after flow start), or when the file's type has no place for the cookie.
    void setMagicCookie(std::span<const std::byte> magicCookie);

    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    /// Creates the file. Fatal stop: "Creating audio file failed".
    void onAudioStreamFlowStart() override;
    /// Writes a chunk. Fatal stops: "Writing packets to file failed: " and the status; a size or
    /// packet count that does not fit 32 bits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    /// Closes the file. A fatal stop when none is open; a file that does not close well is not one,
    /// which loses all of a FLAC, ALAC or Vorbis file that never got its magic cookie.
    void onAudioStreamFlowEnd() override;

 private:
    std::filesystem::path fileURL_;
    AudioFileID fileID_ = nullptr;
    AudioFileTypeID fileFormat_;
    UpstreamLink upstream_;
    std::int64_t curPacketIdx_ = 0;
};

}  // namespace zav
