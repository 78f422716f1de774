#include "ZAVAudioStreaming/modules/ffmpeg/VorbisModes.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace zav::detail {
namespace {

using Bytes = std::span<const std::byte>;

/// Splits the extradata into its three headers. All are empty if the extradata is malformed. The
/// extradata contains the number of headers minus one, the sizes of the first two headers in Xiph's
/// lacing, then the headers.
std::array<Bytes, 3> splitHeaders(Bytes extradata) {
    std::array<Bytes, 3> headers{};
    if (extradata.empty() || extradata[0] != std::byte{2}) {
        return headers;
    }
    std::size_t at = 1;
    std::array<std::size_t, 2> sizes{};
    for (std::size_t& size : sizes) {
        while (at < extradata.size()) {
            const auto part = std::to_integer<std::size_t>(extradata[at++]);
            size += part;
            if (part < 255) {
                break;
            }
        }
    }
    if (sizes[0] > extradata.size() - at || sizes[1] > extradata.size() - at - sizes[0]) {
        return headers;
    }
    headers = {extradata.subspan(at, sizes[0]), extradata.subspan(at + sizes[0], sizes[1]),
               extradata.subspan(at + sizes[0] + sizes[1])};
    return headers;
}

/// Reads an integer of `size` bits, starting at bit `at`. Bit 0 is the lowest bit of the first
/// byte.
std::uint32_t bitsAt(Bytes bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        const std::byte byte = bytes[(at + i) / 8];
        value = value << 1U | (std::to_integer<std::uint32_t>(byte) >> (at + i) % 8 & 1U);
    }
    return value;
}

constexpr std::size_t kCountBits = 6;
constexpr std::size_t kModeBits = 1 + 16 + 16 + 8;  // block flag, window, transform, mapping

/// True if the bits from `at` on can be a mode. The window and transform of a mode are always 0.
bool canBeMode(Bytes setup, std::size_t at) {
    constexpr std::uint32_t kMostMappings = 64;
    return bitsAt(setup, at + 1, 16) == 0 && bitsAt(setup, at + 17, 16) == 0 &&
           bitsAt(setup, at + 33, 8) < kMostMappings;
}

}  // namespace

VorbisModes::VorbisModes(Bytes extradata) {
    constexpr std::size_t kIdentificationSize = 30;
    constexpr std::size_t kBlockSizes = 28;
    const auto [identification, comments, setup] = splitHeaders(extradata);
    if (identification.size() < kIdentificationSize || setup.empty()) {
        return;
    }
    const auto exponents = std::to_integer<unsigned>(identification[kBlockSizes]);
    const std::array blocks = {1U << (exponents & 0xFU), 1U << (exponents >> 4U)};

    // The setup header ends with the number of modes, the modes, and a bit that is set. The part
    // before these takes long to parse, so the search goes backwards from the end. It counts the
    // records that can be modes. At each record, it compares the count with the number stored
    // before the record. The largest count that matches is the number of modes.
    std::size_t end = setup.size() * 8;
    while (end > 0 && bitsAt(setup, end - 1, 1) == 0) {
        --end;
    }
    end -= end > 0 ? 1 : 0;
    constexpr std::size_t kMostModes = 64;
    std::size_t count = 0;
    for (std::size_t i = 1; i <= kMostModes && end >= i * kModeBits + kCountBits; ++i) {
        const std::size_t first = end - i * kModeBits;
        if (!canBeMode(setup, first)) {
            break;
        }
        if (bitsAt(setup, first - kCountBits, kCountBits) + 1 == i) {
            count = i;
        }
    }
    for (std::size_t mode = 0; mode < count; ++mode) {
        blockSizes_.push_back(blocks.at(bitsAt(setup, end - (count - mode) * kModeBits, 1)));
    }
}

std::uint32_t VorbisModes::blockSize(Bytes packet) const {
    if (packet.empty() || blockSizes_.empty() || (packet[0] & std::byte{1}) != std::byte{0}) {
        return 0;
    }
    // The first bit is 0 for audio. The mode follows. It has as many bits as the highest mode
    // needs.
    const auto modeBits = static_cast<std::size_t>(std::bit_width(blockSizes_.size() - 1));
    const std::uint32_t mode = bitsAt(packet, 1, modeBits);
    return mode < blockSizes_.size() ? blockSizes_[mode] : 0;
}

}  // namespace zav::detail
