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

/// Writes received packets into an audio file of a chosen type. Flow start creates the file in the
/// upstream's current format. Flow end closes the file. Chunks outside a flow are dropped silently.
///
/// A second flow replaces the file but continues the packet count: its first packet has the index
/// after the last packet of the first flow. File types that can have a gap get silence before this
/// packet.
///
/// Threads: the thread that drives the graph.
class ZAV_EXPORT FileSink : public AudioStreamInputable {
 public:
    /// Does not touch the file or check the format. Flow start is fatal if the file type cannot
    /// contain the format.
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
    /// Closes the file. Fatal if no file is open. A failure to close is ignored. A FLAC, ALAC or
    /// Vorbis file without a magic cookie is completely lost then.
    void onAudioStreamFlowEnd() override;

 private:
    std::filesystem::path fileURL_;
    AudioFileID fileID_ = nullptr;
    AudioFileTypeID fileFormat_;
    UpstreamLink upstream_;
    std::int64_t curPacketIdx_ = 0;
};

}  // namespace zav
