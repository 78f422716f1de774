#include "ZAVAudioStreaming/containers/SbcFileHeader.hpp"

namespace zav {
namespace {

enum Offset : std::size_t {
    kSubbandsOffset = 48,
    kBlocksOffset = 49,
    kEndiannessOffset = 50,
    kAllocationOffset = 51,
    kBitpoolOffset = 52,
};

}  // namespace

std::array<std::byte, SbcFileHeader::kByteCount> SbcFileHeader::toBytes() const {
    std::array<std::byte, kByteCount> bytes{};
    putCommonFields(bytes, kMagicText);
    bytes[kSubbandsOffset] = std::byte{subbands};
    bytes[kBlocksOffset] = std::byte{blocks};
    bytes[kEndiannessOffset] = std::byte{endianness};
    bytes[kAllocationOffset] = std::byte{allocation};
    bytes[kBitpoolOffset] = std::byte{bitpool};
    return bytes;
}

SbcFileHeader SbcFileHeader::fromBytes(std::span<const std::byte, kByteCount> bytes) {
    SbcFileHeader header;
    header.takeCommonFields(bytes);
    header.subbands = std::to_integer<std::uint8_t>(bytes[kSubbandsOffset]);
    header.blocks = std::to_integer<std::uint8_t>(bytes[kBlocksOffset]);
    header.endianness = std::to_integer<std::uint8_t>(bytes[kEndiannessOffset]);
    header.allocation = std::to_integer<std::uint8_t>(bytes[kAllocationOffset]);
    header.bitpool = std::to_integer<std::uint8_t>(bytes[kBitpoolOffset]);
    return header;
}

}  // namespace zav
