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

/// Writes the packets that it receives into an audio file of a chosen type. Flow start creates the
/// file in the upstream's format of that moment, and flow end closes it. Chunks outside a flow are
/// dropped silently.
///
/// A second flow replaces the file but goes on counting packets: its first packet has the index
/// after the last one of the first flow. Types that can have a gap get silence in front of it.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT FileSink : public AudioStreamInputable {
 public:
    /// Touches no file and checks no format. A format that the type cannot hold is found at flow
    /// start.
    FileSink(NodeKey, const std::shared_ptr<AudioStreamOutputable>& upstream,
             std::filesystem::path fileUrl, AudioFileTypeID fileFormat);
    ~FileSink() override;

    const std::filesystem::path& fileURL() const noexcept { return fileURL_; }
    AudioFileTypeID fileFormat() const noexcept { return fileFormat_; }

    /// Seconds written so far. 0 while no file is open.
    double estimatedDuration() const;

    /// Stores bytes that the file's decoder needs. Call it after flow start. Fatal if no file is
    /// open or if the file's type has no place for the cookie.
    void setMagicCookie(std::span<const std::byte> magicCookie);

    AudioStreamBasicDescription inDataFormat() const override { return upstream_.dataFormat(); }

    /// Creates the file. Fatal if it cannot be created ("Creating audio file failed").
    void onAudioStreamFlowStart() override;
    /// Writes a chunk. Fatal if it cannot be written ("Writing packets to file failed: " and the
    /// status) or if `size` or `packetNum` does not fit 32 bits.
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const AudioStreamPacketDescription* packetDescriptions) override;
    /// Closes the file. Fatal if no file is open. A failure to close is ignored: all of a FLAC,
    /// ALAC or Vorbis file is lost then if it never got its magic cookie.
    void onAudioStreamFlowEnd() override;

 private:
    std::filesystem::path fileURL_;
    AudioFileID fileID_ = nullptr;
    AudioFileTypeID fileFormat_;
    UpstreamLink upstream_;
    std::int64_t curPacketIdx_ = 0;
};

}  // namespace zav
