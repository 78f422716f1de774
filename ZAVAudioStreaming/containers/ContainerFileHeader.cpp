#include "ZAVAudioStreaming/containers/ContainerFileHeader.hpp"

#include <cstring>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::size_t kSampleRateOffset = 32;
constexpr std::size_t kChannelsOffset = 36;

}  // namespace

void ContainerFileHeader::putCommonFields(std::span<std::byte> header,
                                          std::string_view magicText) const {
    std::memcpy(header.data(), magicText.data(), magicText.size());
    putLittleEndian(header.subspan(kSampleRateOffset, sizeof(sampleRate)), sampleRate);
    putLittleEndian(header.subspan(kChannelsOffset, sizeof(channels)), channels);
}

void ContainerFileHeader::takeCommonFields(std::span<const std::byte> header) {
    sampleRate = static_cast<std::uint32_t>(
        littleEndianAt(header.subspan(kSampleRateOffset, sizeof(sampleRate))));
    channels = static_cast<std::uint16_t>(
        littleEndianAt(header.subspan(kChannelsOffset, sizeof(channels))));
}

}  // namespace zav
