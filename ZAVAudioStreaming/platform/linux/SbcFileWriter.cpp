#include "ZAVAudioStreaming/platform/linux/SbcFileWriter.hpp"

#include <algorithm>

#include "ZAVAudioStreaming/platform/linux/SbcFrameHeader.hpp"

namespace zav {

void requireSbcFormat(const AudioStreamBasicDescription& format) {
    const bool isOneOrTwoChannels = format.mChannelsPerFrame == 1 || format.mChannelsPerFrame == 2;
    if (format.mFormatID != kAudioFormatSbc || format.mSampleRate <= 0 || !isOneOrTwoChannels ||
        format.mBytesPerPacket == 0 || format.mFramesPerPacket == 0) {
        throw AudioFileFailure(kAudioFileUnsupportedDataFormatError);
    }
}

std::uint32_t SbcFileWriter::writePackets(std::uint64_t firstPacket, PacketRun run,
                                          const AudioStreamPacketDescription* /*descriptions*/,
                                          const void* buffer) {
    if (firstPacket != frameCount_) {
        throw AudioFileFailure(kAudioFileInvalidPacketOffsetError);
    }
    // The frames tell their own lengths, which can differ from the format's.
    const auto* const bytes = static_cast<const std::byte*>(buffer);
    std::uint32_t packetCount = 0;
    for (std::uint32_t offset = 0; offset < run.byteCount; ++packetCount) {
        const std::uint32_t rest = run.byteCount - offset;
        const auto length = rest < kSbcHeaderSize ? std::nullopt : sbcFrameLength(bytes + offset);
        if (!length || *length > rest) {
            throw AudioFileFailure(kAudioFileParameterError);
        }
        longestFrame_ = std::max(longestFrame_, *length);
        offset += *length;
    }
    file_.writeAt(byteCount_, bytes, run.byteCount);
    byteCount_ += run.byteCount;
    frameCount_ += packetCount;
    return packetCount;
}

}  // namespace zav
