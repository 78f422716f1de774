#include "ZAVAudioStreaming/containers/OpusFileHeader.hpp"

#include <cstring>
#include <string_view>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav {

using namespace detail;

namespace {

constexpr std::string_view kMagicText{"ZAV.Opus\0\0\0\0\0\0\0\0",
                                      ContainerFileHeader::kMagicByteCount};

}  // namespace

std::array<std::byte, OpusFileHeader::kByteCount> OpusFileHeader::toBytes() const {
    std::array<std::byte, kByteCount> bytes{};
    putCommonFields(bytes, kMagicText);
    return bytes;
}

OpusFileHeader OpusFileHeader::fromBytes(std::span<const std::byte, kByteCount> bytes) {
    OpusFileHeader header;
    header.takeCommonFields(bytes);
    return header;
}

bool OpusFileHeader::hasMagic(std::span<const std::byte, kByteCount> bytes) {
    return std::memcmp(bytes.data(), kMagicText.data(), kMagicText.size()) == 0;
}

std::array<std::byte, OpusRecordHeader::kByteCount> OpusRecordHeader::toBytes() const {
    std::array<std::byte, kByteCount> bytes;
    bytes.fill(std::byte{0xFF});
    putLittleEndian(std::span(bytes).first<sizeof(packetLength)>(), packetLength);
    return bytes;
}

OpusRecordHeader OpusRecordHeader::fromBytes(std::span<const std::byte, kByteCount> bytes) {
    return {static_cast<std::uint32_t>(littleEndianAt(bytes.first<sizeof(packetLength)>()))};
}

}  // namespace zav
