#pragma once

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zavtool {

/// A format in words: "16-bit signed integer PCM, little-endian, mono, 16000 Hz".
std::string inWords(const zav::AudioStreamBasicDescription& format);

/// "mono", "stereo", "6 channels".
std::string channelsInWords(std::uint32_t channelCount);

/// "44100 Hz"
std::string rateInWords(double rate);
/// "12.34 s"
std::string secondsText(double seconds);
/// "40.2 ms"
std::string millisecondsText(double seconds);
/// "96.0 kbit/s"
std::string bitRateText(double bitsPerSecond);

/// "0:07.3", "1:02:03.4"
std::string clockText(double seconds);
/// "1 underrun", "0 underruns"
std::string countText(std::uint64_t count, const std::string& what);

/// Descriptions in the help start in this column. A terminal has 80 columns.
inline constexpr std::size_t kHelpColumn = 25;
/// Returns the text with line breaks that fit the column of descriptions.
std::string wrapped(const std::string& text);

/// Names of SBC's parameters, as in the options of `zav encode`.
std::string_view nameOf(zav::SBCCoding::ChannelMode mode);
std::string_view nameOf(zav::SBCCoding::AllocationMethod allocation);
std::optional<zav::SBCCoding::ChannelMode> modeNamed(std::string_view name);
std::uint32_t countOf(zav::SBCCoding::Subband subband);
std::uint32_t countOf(zav::SBCCoding::Block blocks);

}  // namespace zavtool
