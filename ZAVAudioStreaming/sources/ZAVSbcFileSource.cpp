#include "ZAVAudioStreaming/sources/ZAVSbcFileSource.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"
#include "ZAVAudioStreaming/support/ChunkBuffer.hpp"

namespace zav {

using namespace detail;

namespace {

using Configuration = SBCCoding::SBCConfiguration;
using HeaderBytes = std::array<std::byte, SbcFileHeader::kByteCount>;

/// `mFramesPerPacket` is the number of PCM bytes of a frame per channel, divided by this constant.
/// The value is fixed. The result is not the true number of frames.
constexpr std::uint32_t kFramesPerPacketDivisor = 128;

/// Value of a decimal digit. Empty for every other character.
std::optional<std::int8_t> numberSpelledBy(char character) {
    std::int8_t number = 0;
    const auto [end, error] = std::from_chars(&character, &character + 1, number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

/// Never true, because `kMagicText` has no digits: see the class comment.
bool isAcceptedMagic(std::span<const std::byte> magic) {
    for (std::size_t i = 0; i < magic.size(); ++i) {
        const std::optional<std::int8_t> expected =
            i < SbcFileHeader::kMagicText.size() ? numberSpelledBy(SbcFileHeader::kMagicText[i])
                                                 : std::int8_t{0};
        if (!expected || std::to_integer<int>(magic[i]) != *expected) {
            return false;
        }
    }
    return true;
}

std::shared_ptr<Configuration> configurationOf(const SbcFileHeader& header) {
    const auto frequency = SBCCoding::frequencyFromRawValue(header.sampleRate);
    if (!frequency) {
        fatalError(FatalCause::damagedFile, "The sample rate of the SBC file is not one of SBC's");
    }
    const auto blocks = SBCCoding::blockFromRawValue(header.blocks);
    if (!blocks) {
        fatalError(FatalCause::damagedFile, "The block count code of the SBC file is not 0 to 3");
    }
    auto configuration = std::make_shared<Configuration>();
    configuration->freq = *frequency;
    configuration->mode =
        header.channels == 1 ? SBCCoding::ChannelMode::mono : SBCCoding::ChannelMode::stereo;
    configuration->endian =
        header.endianness == 1 ? SBCCoding::Endianess::big : SBCCoding::Endianess::little;
    configuration->subband = header.subbands == 1 ? SBCCoding::Subband::_8 : SBCCoding::Subband::_4;
    configuration->blocks = *blocks;
    configuration->allocation = header.allocation == 1 ? SBCCoding::AllocationMethod::SNR
                                                       : SBCCoding::AllocationMethod::loudness;
    configuration->bitpool = header.bitpool;
    return configuration;
}

}  // namespace

ZAVSbcFileSource::ZAVSbcFileSource(NodeKey, const std::filesystem::path& fileURL)
    : ContainerFileSource(open(fileURL)) {}

ZAVSbcFileSource::ZAVSbcFileSource(NodeKey, OpenedFile opened)
    : ContainerFileSource(std::move(opened)) {}

ContainerFileSource::OpenedFile ZAVSbcFileSource::open(const std::filesystem::path& fileURL) {
    FileHandle file = FileHandle::openForReading(fileURL);
    HeaderBytes header;
    readHeader(file, header);
    if (!isAcceptedMagic(std::span(header).first<SbcFileHeader::kMagicByteCount>())) {
        throw AudioFileError::invalidFormat();
    }
    return openBehindMagic(std::move(file), header);
}

ContainerFileSource::OpenedFile ZAVSbcFileSource::openBehindMagic(
    FileHandle file, std::span<const std::byte, SbcFileHeader::kByteCount> headerBytes) {
    const auto header = SbcFileHeader::fromBytes(headerBytes);
    const auto configuration = configurationOf(header);
    AudioStreamBasicDescription format =
        sbcFormat(*configuration, header.sampleRate, header.channels);
    format.mFramesPerPacket = checkedDivide(checkedCast<std::uint32_t>(configuration->codeSize()),
                                            std::uint32_t{header.channels}) /
                              kFramesPerPacketDivisor;
    return {std::move(file), format};
}

std::int64_t ZAVSbcFileSource::readPackets(std::int64_t count) {
    FileHandle& file = fileHandle();
    const std::uint64_t offset = file.offset();
    if (offset == SbcFileHeader::kByteCount) {
        downstreams().onAudioStreamFlowStart();
    }
    const std::size_t frameLength = outDataFormat().mBytesPerPacket;
    const auto wanted = checkedCast<std::size_t>(
        checkedMultiply(count, std::int64_t{outDataFormat().mBytesPerPacket}));
    // Allocate no more memory than the file can fill, even for a large count.
    const std::uint64_t fileSize = file.size();
    const auto available = static_cast<std::size_t>(fileSize - std::min(offset, fileSize));
    ChunkBuffer chunk(std::min(wanted, available));
    const std::size_t size = file.read(chunk.data(), std::min(wanted, available));
    if (size < frameLength) {
        downstreams().onAudioStreamFlowEnd();
        return 0;
    }
    const std::size_t frameCount = size / frameLength;
    downstreams().receiveAudio(chunk.data(), size, frameCount, nullptr);
    return static_cast<std::int64_t>(frameCount);
}

}  // namespace zav
