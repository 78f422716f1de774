#include "Container.hpp"

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/containers/OpusFileHeader.hpp>
#include <ZAVAudioStreaming/containers/SbcFileHeader.hpp>
#include <ZAVAudioStreaming/core/OpusPacket.hpp>
#include <ZAVAudioStreaming/core/SbcFormatFlags.hpp>
#include <ZAVAudioStreaming/platform/FileHandle.hpp>
#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <system_error>

#include "Failure.hpp"

namespace zavtool {
namespace {

using Configuration = zav::SBCCoding::SBCConfiguration;

zav::FileHandle open(const std::filesystem::path& path) {
    try {
        return zav::FileHandle::openForReading(path);
    } catch (const std::system_error& error) {
        throw Failure(path, readingProblem(error));
    }
}

bool hasSbcMagic(std::span<const std::byte> header) {
    std::array<std::byte, zav::SbcFileHeader::kMagicByteCount> magic{};
    std::memcpy(magic.data(), zav::SbcFileHeader::kMagicText.data(),
                zav::SbcFileHeader::kMagicText.size());
    return std::equal(magic.begin(), magic.end(), header.begin());
}

/// Returns the header of a container. Empty if `hasMagic` rejects the start of the file. Throws
/// `Failure` if the file ends inside the header. Missing bytes count as zero, so this also
/// recognises a file that ends inside the magic.
template <class Header, class HasMagic>
std::optional<std::array<std::byte, Header::kByteCount>> headerOf(const zav::FileHandle& file,
                                                                  const std::filesystem::path& path,
                                                                  HasMagic hasMagic) {
    std::array<std::byte, Header::kByteCount> bytes{};
    const std::size_t size = file.readAt(0, bytes.data(), bytes.size());
    if (!hasMagic(bytes)) {
        return std::nullopt;
    }
    if (size < bytes.size()) {
        throw Failure(path, "cut off in its header; use a file that is whole");
    }
    return bytes;
}

/// Returns the number of frames, at `sampleRate`, that a decoder makes from an Opus packet. The
/// packet starts with `packetStart`. An empty packet marks a lost packet and counts as 60 ms, the
/// usual duration.
std::uint32_t framesIn(std::span<const std::byte> packetStart, std::uint64_t sampleRate) {
    constexpr std::uint64_t kUsualFrameCount = zav::kOpusRate * 60 / 1000;
    const std::uint64_t frames =
        packetStart.empty() ? kUsualFrameCount : zav::opusFrameCount(packetStart);
    return static_cast<std::uint32_t>(frames * sampleRate / zav::kOpusRate);
}

}  // namespace

double secondsIn(const std::vector<PacketInfo>& packets, double sampleRate) {
    std::uint64_t frames = 0;
    for (const PacketInfo& packet : packets) {
        frames += packet.frames;
    }
    return sampleRate > 0 ? static_cast<double>(frames) / sampleRate : 0;
}

std::uint32_t largestOf(const std::vector<PacketInfo>& packets) {
    std::uint32_t largest = 0;
    for (const PacketInfo& packet : packets) {
        largest = std::max(largest, packet.size);
    }
    return largest;
}

std::optional<OpusContainer> examineOpusContainer(const std::filesystem::path& path) {
    const zav::FileHandle file = open(path);
    const auto headerBytes =
        headerOf<zav::OpusFileHeader>(file, path, zav::OpusFileHeader::hasMagic);
    if (!headerBytes) {
        return std::nullopt;
    }
    const auto header = zav::OpusFileHeader::fromBytes(*headerBytes);
    OpusContainer container;
    container.format = zav::opusFormat(header.sampleRate, header.channels);

    constexpr std::size_t kPacketStart = 2;  // enough for the packet's duration
    const std::uint64_t fileSize = file.size();
    std::uint64_t offset = headerBytes->size();
    while (fileSize - offset >= zav::OpusRecordHeader::kByteCount) {
        container.wholeSize = offset;
        std::array<std::byte, zav::OpusRecordHeader::kByteCount + kPacketStart> start{};
        const std::size_t startSize = file.readAt(offset, start.data(), start.size());
        const std::span recordHeader = std::span(start).first<zav::OpusRecordHeader::kByteCount>();
        const std::uint32_t length = zav::OpusRecordHeader::fromBytes(recordHeader).packetLength;
        offset += zav::OpusRecordHeader::kByteCount;
        if (length > fileSize - offset) {
            container.isDamaged = true;
            break;
        }
        container.packets.push_back(
            {length, framesIn(std::span(start)
                                  .first(startSize)
                                  .subspan(recordHeader.size())
                                  .first(std::min<std::size_t>(length, kPacketStart)),
                              header.sampleRate)});
        offset += length;
    }
    return container;
}

std::optional<SbcContainer> examineSbcContainer(const std::filesystem::path& path) {
    const zav::FileHandle file = open(path);
    const auto headerBytes = headerOf<zav::SbcFileHeader>(file, path, hasSbcMagic);
    if (!headerBytes) {
        return std::nullopt;
    }
    const auto header = zav::SbcFileHeader::fromBytes(*headerBytes);
    if (!zav::SBCCoding::frequencyFromRawValue(header.sampleRate) || header.channels == 0 ||
        header.channels > 2 || header.blocks > 3 || header.subbands > 1) {
        throw Failure(path,
                      "an SBC container with parameters that SBC does not have; use one as "
                      "'zav encode' writes it");
    }
    SbcContainer container;
    container.format.mSampleRate = header.sampleRate;
    container.format.mFormatID = zav::kAudioFormatSbc;
    container.format.mFormatFlags =
        zav::SbcFormatFlags{header.endianness == 1, header.blocks, header.allocation == 1,
                            header.subbands == 1, header.bitpool}
            .packed();
    container.format.mChannelsPerFrame = header.channels;
    container.format = with16Bits(container.format);
    container.format.mFramesPerPacket = 4U * (header.blocks + 1U) * (header.subbands == 1 ? 8 : 4);
    container.audioSize = file.size() - headerBytes->size();

    constexpr std::size_t kLongestFrame = 4 + 8 + 16 * 2 * 250 / 8;
    std::vector<std::byte> start(kLongestFrame);
    start.resize(file.readAt(headerBytes->size(), start.data(), start.size()));
    if (const auto frame = Configuration::fromFrame(start.data(), start.size())) {
        start.resize(frame->frameLen());
        container.format.mBytesPerPacket = static_cast<std::uint32_t>(start.size());
        container.firstFrame = std::move(start);
    }
    return container;
}

std::uint64_t SbcContainer::frameCount() const {
    return firstFrame.empty() ? 0 : audioSize / firstFrame.size();
}

zav::AudioStreamBasicDescription with16Bits(zav::AudioStreamBasicDescription sbc) {
    sbc.mBitsPerChannel = 16;
    return sbc;
}

}  // namespace zavtool
