#include "ZAVAudioStreaming/platform/linux/ffmpeg/OpusPacket.hpp"

#include <string_view>

namespace zav {
namespace {

constexpr std::size_t kPreSkipOffset = 10;

void putLittleEndian(std::vector<std::byte>& bytes, std::uint32_t value, int size) {
    for (; size > 0; --size, value >>= 8U) {
        bytes.push_back(static_cast<std::byte>(value));
    }
}

}  // namespace

std::optional<std::uint32_t> opusFrameCount(std::span<const std::byte> packet) {
    if (packet.empty()) {
        return std::nullopt;
    }
    const auto toc = std::to_integer<std::uint32_t>(packet[0]);
    const std::uint32_t configuration = toc >> 3U;
    std::uint32_t frameSize = 0;
    if (configuration < 12) {  // SILK: 10, 20, 40, 60 ms
        frameSize = (configuration & 3U) == 3 ? 2880 : 480U << (configuration & 3U);
    } else if (configuration < 16) {  // hybrid: 10, 20 ms
        frameSize = 480U << (configuration & 1U);
    } else {  // CELT: 2.5, 5, 10, 20 ms
        frameSize = 120U << (configuration & 3U);
    }
    std::uint32_t count = 1;
    if ((toc & 3U) == 3) {
        if (packet.size() < 2) {
            return std::nullopt;
        }
        count = std::to_integer<std::uint32_t>(packet[1]) & 0x3FU;
    } else if ((toc & 3U) != 0) {
        count = 2;
    }
    constexpr std::uint32_t kMostFrames = kOpusRate * 120 / 1000;
    const std::uint32_t frames = frameSize * count;
    return frames == 0 || frames > kMostFrames ? std::nullopt : std::optional(frames);
}

std::vector<std::byte> makeOpusHead(std::uint32_t channels, std::uint16_t preSkip,
                                    std::uint32_t inputRate) {
    std::vector<std::byte> head;
    for (const char letter : std::string_view("OpusHead")) {
        head.push_back(static_cast<std::byte>(letter));
    }
    putLittleEndian(head, 1, 1);  // version
    putLittleEndian(head, channels, 1);
    putLittleEndian(head, preSkip, 2);
    putLittleEndian(head, inputRate, 4);
    putLittleEndian(head, 0, 2);  // gain
    putLittleEndian(head, 0, 1);  // mapping family: mono or stereo
    return head;
}

std::uint32_t preSkipOf(std::span<const std::byte> opusHead) {
    if (opusHead.size() < kPreSkipOffset + 2) {
        return 0;
    }
    return std::to_integer<std::uint32_t>(opusHead[kPreSkipOffset]) |
           std::to_integer<std::uint32_t>(opusHead[kPreSkipOffset + 1]) << 8U;
}

}  // namespace zav
