#include "ZAVAudioStreaming/modules/ffmpeg/SourceDepth.hpp"

#include <algorithm>
#include <array>

#include "ZAVAudioStreaming/support/Endian.hpp"

namespace zav::detail {
namespace {

/// The depths of flags 1, 2, 3 and 4, in bits.
constexpr std::array<std::uint32_t, 4> kDepths = {16, 20, 24, 32};
static_assert(kLosslessFormatFlag_16BitSourceData == 1 &&
              kLosslessFormatFlag_32BitSourceData == kDepths.size());

}  // namespace

bool isLossless(AVCodecID codec) {
    return codec == AV_CODEC_ID_ALAC || codec == AV_CODEC_ID_FLAC;
}

std::uint32_t sourceDepthOf(const AudioStreamBasicDescription& format) {
    const std::uint32_t flag = format.mFormatFlags;
    return flag >= 1 && flag <= kDepths.size() ? kDepths[flag - 1] : format.mBitsPerChannel;
}

std::uint32_t sourceDepthFlag(std::uint32_t depth) {
    const auto* const found = std::find(kDepths.begin(), kDepths.end(), depth);
    return found == kDepths.end() ? 0 : static_cast<std::uint32_t>(found - kDepths.begin()) + 1;
}

std::uint32_t sourceDepthInCookie(AVCodecID codec, std::span<const std::byte> cookie) {
    constexpr std::size_t kAlacDepth = 5;
    constexpr std::size_t kFlacFields = 10;  // 20 bits of rate, 3 of channels, 5 of depth - 1
    if (codec == AV_CODEC_ID_ALAC && cookie.size() > kAlacDepth) {
        return std::to_integer<std::uint32_t>(cookie[kAlacDepth]);
    }
    if (codec == AV_CODEC_ID_FLAC && cookie.size() >= kFlacFields + 4) {
        return static_cast<std::uint32_t>(bigEndianAt(cookie.subspan(kFlacFields, 4)) >> 4U &
                                          0x1FU) +
               1;
    }
    return 0;
}

}  // namespace zav::detail
