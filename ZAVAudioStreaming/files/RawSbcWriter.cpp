#include "ZAVAudioStreaming/files/RawSbcWriter.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/files/SbcFrameHeader.hpp"

namespace zav::detail {

void requireSbcFormat(const AudioStreamBasicDescription& format) {
    const bool isOneOrTwoChannels = format.mChannelsPerFrame == 1 || format.mChannelsPerFrame == 2;
    if (format.mFormatID != kAudioFormatSbc || format.mSampleRate <= 0 || !isOneOrTwoChannels ||
        format.mBytesPerPacket == 0 || format.mFramesPerPacket == 0) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
}

bool RawSbcWriter::hasFramesOfUsualLength(const std::byte* frames, PacketRun run) {
    const std::uint32_t usualLength = dataFormat().mBytesPerPacket;
    if (run.byteCount < kSbcHeaderSize || sbcFrameLength(frames) != usualLength ||
        run.byteCount != std::uint64_t{run.packetCount} * usualLength) {
        return false;
    }
    longestFrame_ = std::max(longestFrame_, usualLength);
    return true;
}

// Frames tell their own lengths, which can differ from the format's.
std::uint32_t RawSbcWriter::countFrames(const std::byte* frames, std::uint32_t byteCount) {
    std::uint32_t frameCount = 0;
    for (std::uint32_t offset = 0; offset < byteCount; ++frameCount) {
        const std::uint32_t rest = byteCount - offset;
        const auto length = rest < kSbcHeaderSize ? std::nullopt : sbcFrameLength(frames + offset);
        if (!length || *length > rest) {
            throw StatusFailure(kAudioFileParameterError);
        }
        longestFrame_ = std::max(longestFrame_, *length);
        offset += *length;
    }
    return frameCount;
}

std::uint32_t RawSbcWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
                                         const AudioStreamPacketDescription* /*descriptions*/,
                                         const void* buffer) {
    if (firstPacket != frameCount_) {
        throw StatusFailure(kAudioFileInvalidPacketOffsetError);
    }
    const auto* const bytes = static_cast<const std::byte*>(buffer);
    const std::uint32_t packetCount =
        hasFramesOfUsualLength(bytes, run) ? run.packetCount : countFrames(bytes, run.byteCount);
    file_.writeAt(byteCount_, bytes, run.byteCount);
    byteCount_ += run.byteCount;
    frameCount_ += packetCount;
    return packetCount;
}

}  // namespace zav::detail
