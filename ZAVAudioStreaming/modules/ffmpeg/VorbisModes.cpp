#include "ZAVAudioStreaming/modules/ffmpeg/VorbisModes.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace zav::detail {
namespace {

using Bytes = std::span<const std::byte>;

/// Splits the packing: the number of headers less one, the sizes of all but the last in the manner
/// of Xiph's lacing, the headers. Empty spans for what is not there.
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

/// The integer in `size` bits from the bit `at` on; the first bit of all is the lowest one of the
/// first byte.
std::uint32_t bitsAt(Bytes bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        const std::byte byte = bytes[(at + i) / 8];
        value = value << 1U | (std::to_integer<std::uint32_t>(byte) >> (at + i) % 8 & 1U);
    }
    return value;
}

constexpr std::size_t kCountBits = 6;
constexpr std::size_t kModeBits = 1 + 16 + 16 + 8;  // long or not, window, transform, mapping

/// Whether a mode's record can stand here: window and transform are always 0.
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

    // The modes are the last thing in the setup header, behind their number and in front of a bit
    // that is set. Everything before them takes long to parse, so they are sought from the end: as
    // many as can be modes and stand behind their own number, of all such numbers the largest.
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
    // One bit says that this is audio, then comes the mode in as many bits as the highest needs.
    const auto modeBits = static_cast<std::size_t>(std::bit_width(blockSizes_.size() - 1));
    const std::uint32_t mode = bitsAt(packet, 1, modeBits);
    return mode < blockSizes_.size() ? blockSizes_[mode] : 0;
}

}  // namespace zav::detail
