#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "ZAVAudioStreaming/files/AudioFileDriver.hpp"
#include "ZAVAudioStreaming/platform/FileHandle.hpp"

namespace zav::detail {

/// Throws 'fmt?' unless the format is an SBC stream's.
void requireSbcFormat(const AudioStreamBasicDescription& format);

/// Writes raw SBC streams: the frames one after the other and nothing else. The file is complete
/// after every write. Frames can only be appended: the file cannot have gaps, and a frame cannot be
/// replaced.
class RawSbcWriter : public AudioFileWriter {
 public:
    RawSbcWriter(FileHandle file, const AudioStreamBasicDescription& dataFormat)
        : AudioFileWriter(kAudioFileSBCType, dataFormat), file_(std::move(file)) {}

    std::uint64_t packetCount() override { return frameCount_; }
    std::uint64_t byteCount() override { return byteCount_; }
    std::uint32_t maximumPacketSize() override { return longestFrame_; }

    std::uint32_t writePackets(std::uint64_t firstPacket, PacketRun run,
                               const AudioStreamPacketDescription* descriptions,
                               const void* buffer) override;
    void finish() override { file_.close(); }

 private:
    /// True if `frames` contains `packetCount` frames of the format's length. Checks only the first
    /// header and the size of all frames. In the usual case, this avoids reading every header.
    bool hasFramesOfUsualLength(std::span<const std::byte> frames, std::uint32_t packetCount);
    /// Counts the frames by their headers. Throws kAudioFileParameterError if they are not
    /// whole frames.
    std::uint32_t countFrames(std::span<const std::byte> frames);

    FileHandle file_;
    std::uint64_t frameCount_ = 0;
    std::uint64_t byteCount_ = 0;
    std::uint32_t longestFrame_ = 0;
};

}  // namespace zav::detail
