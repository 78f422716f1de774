#include "ZAVAudioStreaming/modules/ffmpeg/MagicCookie.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/Endian.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t kAlacConfigSize = 24;
constexpr std::size_t kAlacAtomSize = 12 + kAlacConfigSize;  // size, 'alac', version
constexpr std::size_t kAlacFormatAtomSize = 12;              // size, 'frma', 'alac'
constexpr std::size_t kStreamInfoSize = 34;
constexpr std::size_t kOpusHeadSize = 19;  // for one or two channels, the shortest form
constexpr std::string_view kOpusHeadMarker = "OpusHead";
constexpr std::size_t kFlacMarkerSize = 8;  // 'fLaC', then the header of STREAMINFO's block

[[noreturn]] void refuseCookie() {
    throw StatusFailure(kAudioFileParameterError);
}

bool beginsWith(Bytes bytes, std::string_view text) {
    return bytes.size() >= text.size() &&
           std::equal(text.begin(), text.end(), bytes.begin(), [](char letter, std::byte byte) {
               return static_cast<std::byte>(letter) == byte;
           });
}

/// Takes `size` bytes from the front.
Bytes take(Bytes& bytes, std::size_t size) {
    if (size > bytes.size()) {
        refuseCookie();
    }
    const Bytes front = bytes.first(size);
    bytes = bytes.subspan(size);
    return front;
}

/// Takes a descriptor with this tag from the front and returns its content (ISO/IEC 14496-1, 8.3.3:
/// the size is in groups of seven bits). If the size exceeds the bytes, the content is cut.
Bytes takeDescriptor(Bytes& bytes, std::byte tag) {
    if (take(bytes, 1)[0] != tag) {
        refuseCookie();
    }
    std::size_t size = 0;
    for (int i = 0; i < 4; ++i) {
        const auto group = std::to_integer<std::size_t>(take(bytes, 1)[0]);
        size = size << 7U | (group & 0x7FU);
        if (group < 0x80) {
            break;
        }
    }
    return take(bytes, std::min(size, bytes.size()));
}

/// Descends from the ES descriptor (tag 3) to the decoder's configuration (4) and to the
/// information that is specific to the codec (5).
Bytes configInEsDescriptor(Bytes cookie) {
    constexpr std::byte kHasDependency{0x80};
    constexpr std::byte kHasUrl{0x40};
    constexpr std::byte kHasClock{0x20};
    Bytes stream = takeDescriptor(cookie, std::byte{3});
    const std::byte flags = take(stream, 3)[2];
    if ((flags & kHasDependency) != std::byte{0}) {
        take(stream, 2);
    }
    if ((flags & kHasUrl) != std::byte{0}) {
        take(stream, std::to_integer<std::size_t>(take(stream, 1)[0]));
    }
    if ((flags & kHasClock) != std::byte{0}) {
        take(stream, 2);
    }
    Bytes decoder = takeDescriptor(stream, std::byte{4});
    take(decoder, 13);  // kind of stream, buffer size, bit rates
    return takeDescriptor(decoder, std::byte{5});
}

std::vector<std::byte> aacExtradata(Bytes cookie) {
    constexpr std::byte kEsDescriptor{3};
    const Bytes config =
        !cookie.empty() && cookie[0] == kEsDescriptor ? configInEsDescriptor(cookie) : cookie;
    if (config.size() < 2) {
        refuseCookie();
    }
    return {config.begin(), config.end()};
}

std::vector<std::byte> alacExtradata(Bytes cookie) {
    if (cookie.size() >= kAlacFormatAtomSize + kAlacAtomSize &&
        beginsWith(cookie.subspan(4), "frma")) {
        cookie = cookie.subspan(kAlacFormatAtomSize);
    }
    if (cookie.size() >= kAlacAtomSize && beginsWith(cookie.subspan(4), "alac")) {
        cookie = cookie.first(kAlacAtomSize);
        return {cookie.begin(), cookie.end()};
    }
    if (cookie.size() != kAlacConfigSize) {
        refuseCookie();
    }
    std::vector<std::byte> atom(kAlacAtomSize - kAlacConfigSize);
    putBigEndian(std::span(atom).first(4), kAlacAtomSize);
    putBigEndian(std::span(atom).subspan(4, 4), fourCharCode("alac"));
    atom.insert(atom.end(), cookie.begin(), cookie.end());
    return atom;
}

std::vector<std::byte> flacExtradata(Bytes cookie) {
    if (beginsWith(cookie, "fLaC")) {
        take(cookie, kFlacMarkerSize);
    }
    if (cookie.size() < kStreamInfoSize) {
        refuseCookie();
    }
    return {cookie.begin(), cookie.begin() + kStreamInfoSize};
}

constexpr std::array<std::uint32_t, 13> kAacRates = {
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
constexpr std::uint32_t kOtherRate = 15;
constexpr std::uint32_t kLowComplexity = 2;

std::vector<std::byte> configOfFields(std::uint32_t objectType, std::uint32_t rateIndex,
                                      std::uint32_t channelCode) {
    std::vector<std::byte> config(2);
    putBigEndian(config, objectType << 11U | rateIndex << 7U | channelCode << 3U);
    return config;
}

}  // namespace

bool hasMagicCookie(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_AAC:
        case AV_CODEC_ID_ALAC:
        case AV_CODEC_ID_FLAC:
        case AV_CODEC_ID_OPUS:
        case AV_CODEC_ID_VORBIS:
            return true;
        default:
            return false;
    }
}

std::vector<std::byte> extradataOfCookie(AVCodecID codec, std::span<const std::byte> cookie) {
    switch (codec) {
        case AV_CODEC_ID_AAC:
            return aacExtradata(cookie);
        case AV_CODEC_ID_ALAC:
            return alacExtradata(cookie);
        case AV_CODEC_ID_FLAC:
            return flacExtradata(cookie);
        case AV_CODEC_ID_OPUS:
            if (cookie.size() < kOpusHeadSize || !beginsWith(cookie, kOpusHeadMarker)) {
                refuseCookie();
            }
            break;
        default:
            break;
    }
    if (cookie.empty()) {
        refuseCookie();
    }
    return {cookie.begin(), cookie.end()};
}

std::vector<std::byte> cookieOfExtradata(AVCodecID codec, std::span<const std::byte> extradata) {
    if (!hasMagicCookie(codec)) {
        return {};
    }
    if (codec == AV_CODEC_ID_ALAC && extradata.size() >= kAlacAtomSize) {
        extradata = extradata.subspan(kAlacAtomSize - kAlacConfigSize, kAlacConfigSize);
    }
    return {extradata.begin(), extradata.end()};
}

std::vector<std::byte> makeOpusHead(std::uint32_t channels, std::uint16_t preSkip,
                                    std::uint32_t inputRate) {
    // The gain (offset 16) stays 0. The mapping family (offset 18) also stays 0, which means mono
    // or stereo.
    std::vector<std::byte> head(kOpusHeadSize);
    const std::span bytes(head);
    std::memcpy(head.data(), kOpusHeadMarker.data(), kOpusHeadMarker.size());
    putLittleEndian(bytes.subspan(8, 1), 1);  // version
    putLittleEndian(bytes.subspan(9, 1), channels);
    putLittleEndian(bytes.subspan(10, 2), preSkip);
    putLittleEndian(bytes.subspan(12, 4), inputRate);
    return head;
}

std::vector<std::byte> makeAlacConfig(std::uint32_t framesPerPacket, std::uint32_t depth,
                                      std::uint32_t channels, std::uint32_t rate) {
    std::vector<std::byte> config(kAlacConfigSize);
    const std::span bytes(config);
    putBigEndian(bytes.first(4), framesPerPacket);
    putBigEndian(bytes.subspan(5, 1), depth);
    // The adaptation of the Rice parameter: weight of its history, initial value, limit.
    putBigEndian(bytes.subspan(6, 1), 40);
    putBigEndian(bytes.subspan(7, 1), 10);
    putBigEndian(bytes.subspan(8, 1), 14);
    putBigEndian(bytes.subspan(9, 1), channels);
    putBigEndian(bytes.subspan(10, 2), 255);  // longest run
    putBigEndian(bytes.subspan(20, 4), rate);
    return config;
}

std::vector<std::byte> makeAudioSpecificConfig(std::uint32_t rate, std::uint32_t channels) {
    constexpr std::uint32_t kEightChannelCode = 7;
    if (channels == 0 || channels == 7 || channels > 8) {
        return {};
    }
    const std::uint32_t channelCode = channels == 8 ? kEightChannelCode : channels;
    const auto* const known = std::find(kAacRates.begin(), kAacRates.end(), rate);
    if (known != kAacRates.end()) {
        return configOfFields(kLowComplexity, static_cast<std::uint32_t>(known - kAacRates.begin()),
                              channelCode);
    }
    // 5 bits of object type, 4 that announce an explicit rate, 24 of rate, 4 of channels, 3 zeros.
    std::vector<std::byte> config(5);
    putBigEndian(config, std::uint64_t{kLowComplexity} << 35U | std::uint64_t{kOtherRate} << 31U |
                             std::uint64_t{rate} << 7U | channelCode << 3U);
    return config;
}

std::size_t adtsHeaderSize(std::span<const std::byte> packet) {
    // ISO/IEC 13818-7, 6.2.1: 12 bits of sync, layer 0, the lowest bit of the second byte set if
    // there is no checksum; 13 bits of length from bit 30 on.
    constexpr std::size_t kHeaderSize = 7;
    constexpr std::size_t kChecksumSize = 2;
    if (packet.size() < kHeaderSize || packet[0] != std::byte{0xFF} ||
        (packet[1] & std::byte{0xF6}) != std::byte{0xF0}) {
        return 0;
    }
    const std::uint64_t length = bigEndianAt(packet.subspan(3, 3)) >> 5U & 0x1FFFU;
    const bool hasChecksum = (packet[1] & std::byte{1}) == std::byte{0};
    const std::size_t size = kHeaderSize + (hasChecksum ? kChecksumSize : 0);
    return length == packet.size() && length > size ? size : 0;
}

std::vector<std::byte> audioSpecificConfigOfAdts(std::span<const std::byte> packet) {
    if (adtsHeaderSize(packet) == 0) {
        return {};
    }
    const auto fields = static_cast<std::uint32_t>(bigEndianAt(packet.subspan(2, 2)));
    return configOfFields((fields >> 14U) + 1, fields >> 10U & 0xFU, fields >> 6U & 0x7U);
}

}  // namespace zav::detail
