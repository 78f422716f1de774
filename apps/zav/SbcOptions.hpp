#pragma once

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace zavtool {

/// How SBC is to be encoded; what is not given is the usual value.
struct SbcOptions {
    std::optional<std::uint32_t> bitpool;
    std::optional<std::string> mode;
    std::optional<std::uint32_t> subbands;
    std::optional<std::uint32_t> blocks;
    std::optional<std::string> allocation;

    bool areGiven() const { return bitpool || mode || subbands || blocks || allocation; }
};

/// What the encoder is made with, for 16-bit PCM of one of SBC's rates, mono or stereo. Throws
/// `Failure`, naming `file`, and `UsageFailure` for options that do not go together.
std::shared_ptr<zav::SBCCoding::SBCConfiguration> configurationFor(
    const SbcOptions& options, const zav::AudioStreamBasicDescription& pcm,
    const std::filesystem::path& file);

}  // namespace zavtool
