#include "ZAVAudioStreaming/modules/pulse/WideSamples.hpp"

#include <cstring>

#include "ZAVAudioStreaming/support/G711.hpp"

namespace zav::detail {
namespace {

template <typename Decode>
constexpr WideSamples table(Decode decode) {
    WideSamples samples{};
    for (int i = 0; i < 256; ++i) {
        samples[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(decode(i));
    }
    return samples;
}

constexpr int fromUnsigned(int byte) {
    return (byte - 128) * 256;
}

constexpr WideSamples kFromUnsigned = table(fromUnsigned);
constexpr WideSamples kFromALaw = table(fromALaw);
constexpr WideSamples kFromMuLaw = table(fromMuLaw);

}  // namespace

const WideSamples* wideSamples(pa_sample_format_t format) {
    switch (format) {
        case PA_SAMPLE_U8:
            return &kFromUnsigned;
        case PA_SAMPLE_ALAW:
            return &kFromALaw;
        case PA_SAMPLE_ULAW:
            return &kFromMuLaw;
        default:
            return nullptr;
    }
}

void widen(const WideSamples& samples, std::span<std::byte> room, std::size_t byteCount) {
    const std::span<const std::byte> narrow = room.subspan(room.size() / 2);
    // The write position never overtakes the read position.
    for (std::size_t i = 0; i < byteCount; ++i) {
        const std::int16_t sample = samples[std::to_integer<std::size_t>(narrow[i])];
        std::memcpy(&room[i * sizeof(sample)], &sample, sizeof(sample));
    }
}

}  // namespace zav::detail
