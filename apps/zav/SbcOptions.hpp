#pragma once

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zavtool {

/// Parameters of SBC. A parameter that is not given has its usual value.
struct SbcOptions {
    std::optional<std::uint32_t> bitpool;
    std::optional<std::string> mode;
    std::optional<std::uint32_t> subbands;
    std::optional<std::uint32_t> blocks;
    std::optional<std::string> allocation;
};

/// Throws `UsageFailure` if any of these options was given. The message lists the given options.
/// `codec` is the codec of the file `output`.
void requireNoSbcOptions(const SbcOptions& options, const std::filesystem::path& output,
                         std::string_view codec);

/// The encoder's configuration for 16-bit PCM, mono or stereo, at one of SBC's rates. Throws
/// `Failure`, which names `file`, if the mode does not suit the channels, and `UsageFailure` if the
/// bitpool is too large.
std::shared_ptr<zav::SBCCoding::SBCConfiguration> configurationFor(
    const SbcOptions& options, const zav::AudioStreamBasicDescription& pcm,
    const std::filesystem::path& file);

}  // namespace zavtool
