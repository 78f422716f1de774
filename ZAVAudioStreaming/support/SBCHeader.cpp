#include "ZAVAudioStreaming/support/SBCHeader.hpp"

#include <sbc/sbc.h>

#include <new>

#include "ZAVAudioStreaming/core/SbcFormatFlags.hpp"

namespace zav::detail {

std::optional<SBCHeader> SBCHeader::fromBytes(std::span<const std::byte> bytes) {
    constexpr std::byte kSyncByte{0x9C};
    if (bytes.size() < kByteCount || bytes[0] != kSyncByte) {
        return std::nullopt;
    }
    const auto parameters = std::to_integer<std::uint32_t>(bytes[1]);
    return SBCHeader{.sampleRate = kSbcRatesInHz[parameters >> 6U & 3U],
                     .blocks = 4 * ((parameters >> 4U & 3U) + 1),
                     .mode = static_cast<ChannelMode>(parameters >> 2U & 3U),
                     .allocation = static_cast<Allocation>(parameters >> 1U & 1U),
                     .subbands = (parameters & 1U) != 0 ? 8U : 4U,
                     .bitpool = std::to_integer<std::uint8_t>(bytes[2])};
}

bool isValidSbcFrame(std::span<const std::byte> bytes) {
    sbc_t state{};
    if (sbc_init(&state, 0) != 0) {
        throw std::bad_alloc();
    }
    const bool isValid = sbc_parse(&state, bytes.data(), bytes.size()) > 0;
    sbc_finish(&state);
    return isValid;
}

AudioStreamBasicDescription SBCHeader::dataFormat() const {
    const SbcFormatFlags flags{.blocks = static_cast<std::uint8_t>(blocks / 4 - 1),
                               .isSnr = allocation == Allocation::snr,
                               .is8Subbands = subbands == 8,
                               .bitpool = bitpool};
    return {.mSampleRate = static_cast<double>(sampleRate),
            .mFormatID = kAudioFormatSbc,
            .mFormatFlags = flags.packed(),
            .mBytesPerPacket = frameLength(),
            .mFramesPerPacket = samplesPerChannel(),
            .mChannelsPerFrame = channels()};
}

}  // namespace zav::detail
