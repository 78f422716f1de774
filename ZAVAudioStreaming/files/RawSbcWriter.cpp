#include "ZAVAudioStreaming/files/RawSbcWriter.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/support/SBCHeader.hpp"

namespace zav::detail {

void requireSbcFormat(const AudioStreamBasicDescription& format) {
    const bool isOneOrTwoChannels = format.mChannelsPerFrame == 1 || format.mChannelsPerFrame == 2;
    if (format.mFormatID != kAudioFormatSbc || format.mSampleRate <= 0 || !isOneOrTwoChannels ||
        format.mBytesPerPacket == 0 || format.mFramesPerPacket == 0) {
        throw StatusFailure(kAudioFileUnsupportedDataFormatError);
    }
}

bool RawSbcWriter::hasFramesOfUsualLength(std::span<const std::byte> frames,
                                          std::uint32_t packetCount) {
    const std::uint32_t usualLength = dataFormat().mBytesPerPacket;
    const auto header = SBCHeader::fromBytes(frames);
    if (!header || header->frameLength() != usualLength ||
        frames.size() != std::uint64_t{packetCount} * usualLength) {
        return false;
    }
    longestFrame_ = std::max(longestFrame_, usualLength);
    return true;
}

// Each frame's header contains its length, which can differ from the format's length.
std::uint32_t RawSbcWriter::countFrames(std::span<const std::byte> frames) {
    std::uint32_t frameCount = 0;
    for (; !frames.empty(); ++frameCount) {
        const auto header = SBCHeader::fromBytes(frames);
        if (!header || header->frameLength() > frames.size()) {
            throw StatusFailure(kAudioFileParameterError);
        }
        longestFrame_ = std::max(longestFrame_, header->frameLength());
        frames = frames.subspan(header->frameLength());
    }
    return frameCount;
}

std::uint32_t RawSbcWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
                                         const AudioStreamPacketDescription* /*descriptions*/,
                                         const void* buffer) {
    if (firstPacket != frameCount_) {
        throw StatusFailure(kAudioFileInvalidPacketOffsetError);
    }
    const std::span frames(static_cast<const std::byte*>(buffer), run.byteCount);
    const std::uint32_t packetCount =
        hasFramesOfUsualLength(frames, run.packetCount) ? run.packetCount : countFrames(frames);
    file_.writeAt(byteCount_, frames.data(), frames.size());
    byteCount_ += run.byteCount;
    frameCount_ += packetCount;
    return packetCount;
}

}  // namespace zav::detail
