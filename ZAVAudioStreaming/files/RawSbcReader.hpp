#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Format of the frame at the start of the file, and so of the stream. Empty if no whole valid
/// frame is there. Throws std::bad_alloc.
std::optional<AudioStreamBasicDescription> firstSbcFrame(const FileHandle& file);

/// Reads raw SBC streams; one packet is one SBC frame. The first call that needs the frames reads
/// all headers once. A last frame that is cut short is left out. If bytes that are no frame follow
/// the last frame, the packets before them are readable, and reading the next one is 'dta?'.
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
        /// Offset of each frame, and of the end of the last one. Empty while all frames have one
        /// length.
        std::vector<std::uint64_t> offsets;
    };

    const Index& index();
    void buildIndex();
    void addFrame(std::uint64_t offset, std::uint32_t length);
    std::uint64_t offsetOf(std::uint64_t frame) const;
    /// Index of the first frame that does not end at or before `endOffset`.
    std::uint64_t lastFit(std::uint64_t endOffset) const;

    FileHandle file_;
    Index index_;
};

}  // namespace zav::detail
