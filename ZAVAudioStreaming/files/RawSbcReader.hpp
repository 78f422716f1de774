#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Reads the format of the stream from its first frame. Empty if the file does not begin with a
/// whole valid frame. Throws std::bad_alloc.
std::optional<AudioStreamBasicDescription> firstSbcFrame(const FileHandle& file);

/// Reads raw SBC streams; one packet is one SBC frame. The first call that needs the frames reads
/// all headers once. A last frame that is cut short is left out. If other bytes follow the last
/// frame, all packets before those bytes can be read. Reading the next packet throws 'dta?'.
class RawSbcReader : public AudioFileReader {
 public:
    RawSbcReader(FileHandle file, const AudioStreamBasicDescription& dataFormat)
        : AudioFileReader(kAudioFileSBCType, dataFormat), file_(std::move(file)) {}

    std::uint64_t packetCount() override { return index().frameCount; }
    std::uint64_t byteCount() override { return offsetOf(index().frameCount); }
    std::uint32_t maximumPacketSize() override { return index().longestFrame; }

    PacketRun readPackets(std::uint64_t firstPacket, PacketRun room,
                          AudioStreamPacketDescription* descriptions, void* buffer) override;

 private:
    struct Index {
        bool isBuilt = false;
        std::uint64_t frameCount = 0;
        std::uint32_t longestFrame = 0;
        bool isDamaged = false;
        /// Offset of each frame, then the offset of the end of the last frame. Empty while all
        /// frames have the same length.
        std::vector<std::uint64_t> offsets;
    };

    const Index& index();
    void buildIndex();
    void addFrame(std::uint64_t offset, std::uint32_t length);
    std::uint64_t offsetOf(std::uint64_t frame) const;
    /// Index of the first frame that ends after `endOffset`.
    std::uint64_t lastFit(std::uint64_t endOffset) const;

    FileHandle file_;
    Index index_;
};

}  // namespace zav::detail
