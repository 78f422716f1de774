#include "ZAVAudioStreaming/modules/pulse/PulseFormat.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "ZAVAudioStreaming/queues/DeviceRate.hpp"
#include "ZAVAudioStreaming/support/Silence.hpp"

namespace zav::detail {
namespace {

pa_sample_format_t sampleFormat(const AudioStreamBasicDescription& format) {
    const std::uint32_t bits = format.mBitsPerChannel;
    const bool isBig = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    const std::uint32_t bytes = format.mBytesPerFrame / format.mChannelsPerFrame;
    switch (format.mFormatID) {
        case kAudioFormatALaw:
            return bytes == 1 ? PA_SAMPLE_ALAW : PA_SAMPLE_INVALID;
        case kAudioFormatULaw:
            return bytes == 1 ? PA_SAMPLE_ULAW : PA_SAMPLE_INVALID;
        case kAudioFormatLinearPCM:
            break;
        default:
            return PA_SAMPLE_INVALID;
    }
    if ((format.mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
        const auto float32 = isBig ? PA_SAMPLE_FLOAT32BE : PA_SAMPLE_FLOAT32LE;
        return bits == 32 && bytes == 4 ? float32 : PA_SAMPLE_INVALID;
    }
    if ((format.mFormatFlags & kAudioFormatFlagIsSignedInteger) == 0) {
        return bits == 8 && bytes == 1 ? PA_SAMPLE_U8 : PA_SAMPLE_INVALID;
    }
    if (bits == 16 && bytes == 2) {
        return isBig ? PA_SAMPLE_S16BE : PA_SAMPLE_S16LE;
    }
    if (bits == 24 && bytes == 3) {
        return isBig ? PA_SAMPLE_S24BE : PA_SAMPLE_S24LE;
    }
    if (bits == 32 && bytes == 4) {
        return isBig ? PA_SAMPLE_S32BE : PA_SAMPLE_S32LE;
    }
    return PA_SAMPLE_INVALID;
}

// Channel order of WAV files, FLAC files and FFmpeg's decoders. libpulse's own order differs for
// four and for seven channels.
constexpr auto kLeft = PA_CHANNEL_POSITION_FRONT_LEFT;
constexpr auto kRight = PA_CHANNEL_POSITION_FRONT_RIGHT;
constexpr auto kCenter = PA_CHANNEL_POSITION_FRONT_CENTER;
constexpr auto kLow = PA_CHANNEL_POSITION_LFE;
constexpr auto kBackLeft = PA_CHANNEL_POSITION_REAR_LEFT;
constexpr auto kBackRight = PA_CHANNEL_POSITION_REAR_RIGHT;
constexpr auto kBack = PA_CHANNEL_POSITION_REAR_CENTER;
constexpr auto kSideLeft = PA_CHANNEL_POSITION_SIDE_LEFT;
constexpr auto kSideRight = PA_CHANNEL_POSITION_SIDE_RIGHT;
constexpr std::size_t kMaxChannels = 8;
constexpr std::array<std::array<pa_channel_position_t, kMaxChannels>, kMaxChannels> kPositions{
    {{PA_CHANNEL_POSITION_MONO},
     {kLeft, kRight},
     {kLeft, kRight, kCenter},
     {kLeft, kRight, kBackLeft, kBackRight},
     {kLeft, kRight, kCenter, kBackLeft, kBackRight},
     {kLeft, kRight, kCenter, kLow, kBackLeft, kBackRight},
     {kLeft, kRight, kCenter, kLow, kBack, kSideLeft, kSideRight},
     {kLeft, kRight, kCenter, kLow, kBackLeft, kBackRight, kSideLeft, kSideRight}}};

}  // namespace

std::optional<PulseFormat> pulseFormat(const AudioStreamBasicDescription& format) {
    const std::uint32_t channels = format.mChannelsPerFrame;
    if (channels == 0 || channels > kMaxChannels || !isDeviceRate(format.mSampleRate)) {
        return std::nullopt;
    }
    PulseFormat result{{sampleFormat(format), static_cast<std::uint32_t>(format.mSampleRate),
                        static_cast<std::uint8_t>(channels)},
                       {},
                       {}};
    if (pa_sample_spec_valid(&result.sampling) == 0) {
        return std::nullopt;
    }
    result.silence = silenceByteOf(format);
    result.map.channels = result.sampling.channels;
    std::copy_n(kPositions[channels - 1].begin(), channels, std::begin(result.map.map));
    return result;
}

}  // namespace zav::detail
