#pragma once

#include <cstdint>
#include <vector>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/files/SbcFrameHeader.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Reads raw SBC streams; one packet is one SBC frame. The first call that needs to know the frames
/// reads through all headers once. A last frame that is cut short is left out; where a frame should
/// begin and none does, the packets before it are readable and the next one is 'dta?'.
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
        /// Where every frame begins and the last one ends; empty while all have one length.
        std::vector<std::uint64_t> offsets;
    };

    const Index& index();
    void buildIndex();
    void addFrame(std::uint64_t offset, std::uint32_t length);
    std::uint64_t offsetOf(std::uint64_t frame) const;
    /// The frame that the last whole one before `endOffset` is followed by.
    std::uint64_t lastFit(std::uint64_t endOffset) const;

    FileHandle file_;
    Index index_;
};

}  // namespace zav::detail
