#include "FormatText.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <utility>

namespace zavtool {
namespace {

using Mode = zav::SBCCoding::ChannelMode;

constexpr std::array<Mode, 4> kModes = {Mode::mono, Mode::dual, Mode::stereo, Mode::jointStereo};

constexpr std::pair<std::uint32_t, std::string_view> kCompressedFormats[] = {
    {zav::kAudioFormatSbc, "SBC"},
    {zav::kAudioFormatOpus, "Opus"},
    {zav::kAudioFormatMPEG4AAC, "AAC"},
    {zav::kAudioFormatMPEGLayer1, "MPEG layer 1"},
    {zav::kAudioFormatMPEGLayer2, "MPEG layer 2"},
    {zav::kAudioFormatMPEGLayer3, "MP3"},
    {zav::kAudioFormatALAC, "ALAC"},
    {zav::kAudioFormatFLAC, "FLAC"},
    {zav::kAudioFormatVorbis, "Vorbis"},
    {zav::kAudioFormatAC3, "AC-3"},
    {zav::kAudioFormatAMR, "AMR"},
    {zav::kAudioFormatALaw, "A-law"},
    {zav::kAudioFormatULaw, "mu-law"},
};

std::string encodingInWords(const zav::AudioStreamBasicDescription& format) {
    for (const auto& [id, name] : kCompressedFormats) {
        if (format.mFormatID == id) {
            return std::string(name);
        }
    }
    if (format.mFormatID != zav::kAudioFormatLinearPCM) {
        return zav::fourCharText(format.mFormatID);
    }
    const auto has = [&](std::uint32_t flag) { return (format.mFormatFlags & flag) != 0; };
    std::string text = std::to_string(format.mBitsPerChannel) + "-bit ";
    if (has(zav::kAudioFormatFlagIsFloat)) {
        text += "float PCM";
    } else {
        text += has(zav::kAudioFormatFlagIsSignedInteger) ? "signed integer PCM"
                                                          : "unsigned integer PCM";
    }
    if (format.mBitsPerChannel > 8) {
        text += has(zav::kAudioFormatFlagIsBigEndian) ? ", big-endian" : ", little-endian";
    }
    return text;
}

}  // namespace

std::string inWords(const zav::AudioStreamBasicDescription& format) {
    return encodingInWords(format) + ", " + channelsInWords(format.mChannelsPerFrame) + ", " +
           rateInWords(format.mSampleRate);
}

std::string channelsInWords(std::uint32_t channelCount) {
    if (channelCount == 1) {
        return "mono";
    }
    return channelCount == 2 ? "stereo" : std::to_string(channelCount) + " channels";
}

std::string rateInWords(double rate) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g Hz", rate);
    return text.data();
}

std::string secondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", seconds);
    return text.data();
}

std::string millisecondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", 1000 * seconds);
    return text.data();
}

std::string bitRateText(double bitsPerSecond) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f kbit/s", bitsPerSecond / 1000);
    return text.data();
}

std::string clockText(double seconds) {
    const auto tenths = static_cast<long long>(std::floor(seconds * 10));
    const long long minutes = tenths / 600;
    std::array<char, 64> text{};
    if (minutes < 60) {
        std::snprintf(text.data(), text.size(), "%lld:%02lld.%lld", minutes, tenths / 10 % 60,
                      tenths % 10);
    } else {
        std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld.%lld", minutes / 60,
                      minutes % 60, tenths / 10 % 60, tenths % 10);
    }
    return text.data();
}

std::string countText(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string_view nameOf(Mode mode) {
    switch (mode) {
        case Mode::mono:
            return "mono";
        case Mode::dual:
            return "dual";
        case Mode::stereo:
            return "stereo";
        case Mode::jointStereo:
            return "joint";
    }
    return "unknown";
}

std::string_view nameOf(zav::SBCCoding::AllocationMethod allocation) {
    return allocation == zav::SBCCoding::AllocationMethod::SNR ? "snr" : "loudness";
}

std::optional<Mode> modeNamed(std::string_view name) {
    for (const Mode mode : kModes) {
        if (nameOf(mode) == name) {
            return mode;
        }
    }
    return std::nullopt;
}

std::uint32_t countOf(zav::SBCCoding::Subband subband) {
    return subband == zav::SBCCoding::Subband::_8 ? 8 : 4;
}

std::uint32_t countOf(zav::SBCCoding::Block blocks) {
    return 4 * (zav::SBCCoding::rawValue(blocks) + 1);
}

std::string wrapped(const std::string& text) {
    constexpr std::size_t kWidth = 80 - kHelpColumn;
    std::istringstream words(text);
    std::string lines;
    std::size_t lineSize = 0;
    for (std::string word; words >> word;) {
        const bool fits = lineSize + 1 + word.size() <= kWidth;
        lines += lines.empty() ? "" : fits ? " " : "\n";
        lineSize = fits && !lines.empty() ? lineSize + 1 + word.size() : word.size();
        lines += word;
    }
    return lines;
}

}  // namespace zavtool
