#include "ZAVAudioStreaming/files/RawSbcReader.hpp"

#include <algorithm>
#include <array>

#include "ZAVAudioStreaming/support/SBCHeader.hpp"

namespace zav::detail {

std::optional<AudioStreamBasicDescription> firstSbcFrame(const FileHandle& file) {
    std::array<std::byte, kLongestSbcFrame> bytes{};
    const auto start = std::span(bytes).first(file.readAt(0, bytes.data(), bytes.size()));
    const auto header = SBCHeader::fromBytes(start);
    if (!header || start.size() < header->frameLength() || !isValidSbcFrame(start)) {
        return std::nullopt;
    }
    return header->dataFormat();
}

const RawSbcReader::Index& RawSbcReader::index() {
    if (!index_.isBuilt) {
        index_ = {};
        buildIndex();
        index_.isBuilt = true;
    }
    return index_;
}

void RawSbcReader::buildIndex() {
    constexpr std::size_t kWindowSize = 65536;
    std::vector<std::byte> window(kWindowSize);
    std::uint64_t windowOffset = 0;
    std::size_t windowSize = 0;
    const std::uint64_t fileSize = file_.size();

    for (std::uint64_t offset = 0; fileSize - offset >= SBCHeader::kByteCount;) {
        if (offset + SBCHeader::kByteCount > windowOffset + windowSize) {
            windowOffset = offset;
            windowSize = file_.readAt(offset, window.data(), window.size());
            if (windowSize < SBCHeader::kByteCount) {
                return;
            }
        }
        const auto header = SBCHeader::fromBytes(
            std::span(window).subspan(offset - windowOffset, SBCHeader::kByteCount));
        if (!header) {
            index_.isDamaged = true;
            return;
        }
        if (header->frameLength() > fileSize - offset) {
            return;
        }
        addFrame(offset, header->frameLength());
        offset += header->frameLength();
    }
}

void RawSbcReader::addFrame(std::uint64_t offset, std::uint32_t length) {
    auto& offsets = index_.offsets;
    if (offsets.empty() && index_.frameCount > 0 && length != index_.longestFrame) {
        for (std::uint64_t i = 0; i <= index_.frameCount; ++i) {
            offsets.push_back(i * index_.longestFrame);
        }
    }
    if (!offsets.empty()) {
        offsets.push_back(offset + length);
    }
    index_.longestFrame = std::max(index_.longestFrame, length);
    ++index_.frameCount;
}

std::uint64_t RawSbcReader::offsetOf(std::uint64_t frame) const {
    return index_.offsets.empty() ? frame * index_.longestFrame : index_.offsets[frame];
}

std::uint64_t RawSbcReader::lastFit(std::uint64_t endOffset) const {
    const auto& offsets = index_.offsets;
    if (offsets.empty()) {
        return std::min(endOffset / index_.longestFrame, index_.frameCount);
    }
    const auto beyond = std::upper_bound(offsets.begin(), offsets.end(), endOffset);
    return static_cast<std::uint64_t>(beyond - offsets.begin()) - 1;
}

PacketRun RawSbcReader::readPackets(std::uint64_t firstPacket, PacketRun room,
                                    AudioStreamPacketDescription* descriptions, void* buffer) {
    const std::uint64_t frameCount = index().frameCount;
    if (firstPacket >= frameCount) {
        if (index_.isDamaged && room.packetCount > 0) {
            throw StatusFailure(kAudioFileInvalidFileError);
        }
        return {};
    }
    const std::uint64_t start = offsetOf(firstPacket);
    const std::uint64_t end =
        std::min(firstPacket + room.packetCount, lastFit(start + room.byteCount));
    const auto byteCount = static_cast<std::uint32_t>(offsetOf(end) - start);
    if (file_.readAt(start, buffer, byteCount) < byteCount) {
        // The file has become shorter since it was indexed.
        throw StatusFailure(kAudioFileInvalidFileError);
    }
    if (descriptions != nullptr) {
        for (std::uint64_t frame = firstPacket; frame < end; ++frame) {
            const std::uint64_t offset = offsetOf(frame);
            *descriptions++ = {static_cast<std::int64_t>(offset - start), 0,
                               static_cast<std::uint32_t>(offsetOf(frame + 1) - offset)};
        }
    }
    return {byteCount, static_cast<std::uint32_t>(end - firstPacket)};
}

}  // namespace zav::detail
