#include "SbcOptions.hpp"

#include <algorithm>

#include "Failure.hpp"
#include "FormatText.hpp"

namespace zavtool {
namespace {

using Coding = zav::SBCCoding;

/// The largest bitpool of SBC with these parameters (A2DP 1.3, appendix B).
std::uint32_t largestBitpool(Coding::ChannelMode mode, std::uint32_t subbands) {
    constexpr std::uint32_t kLargestOfAll = 250;
    const bool isPerChannel =
        mode == Coding::ChannelMode::mono || mode == Coding::ChannelMode::dual;
    return std::min((isPerChannel ? 16 : 32) * subbands, kLargestOfAll);
}

Coding::ChannelMode modeOf(const SbcOptions& options, std::uint32_t channelCount,
                           const std::filesystem::path& file) {
    const bool isMono = channelCount == 1;
    if (!options.mode) {
        return isMono ? Coding::ChannelMode::mono : Coding::ChannelMode::stereo;
    }
    const auto mode = modeNamed(*options.mode);
    if (!mode || (*mode == Coding::ChannelMode::mono) != isMono) {
        throw Failure(file, channelsInWords(channelCount) + " audio for --mode " + *options.mode +
                                "; use " +
                                (isMono ? "--mode mono" : "--mode dual, stereo or joint"));
    }
    return *mode;
}

}  // namespace

void requireNoSbcOptions(const SbcOptions& options, const std::filesystem::path& output,
                         std::string_view codec) {
    std::string given;
    const auto add = [&given](bool isGiven, const char* name) {
        given += !isGiven ? "" : (given.empty() ? "" : ", ") + std::string(name);
    };
    add(options.bitpool.has_value(), "--bitpool");
    add(options.mode.has_value(), "--mode");
    add(options.subbands.has_value(), "--subbands");
    add(options.blocks.has_value(), "--blocks");
    add(options.allocation.has_value(), "--allocation");
    if (!given.empty()) {
        throw UsageFailure(given + ": for SBC only, but " + shown(output) + " is to hold " +
                           std::string(codec));
    }
}

std::shared_ptr<zav::SBCCoding::SBCConfiguration> configurationFor(
    const SbcOptions& options, const zav::AudioStreamBasicDescription& pcm,
    const std::filesystem::path& file) {
    const std::uint32_t subbands = options.subbands.value_or(8);
    const std::uint32_t bitpool = options.bitpool.value_or(32);
    auto configuration = std::make_shared<Coding::SBCConfiguration>();
    configuration->freq =
        Coding::frequencyFromRawValue(static_cast<std::int64_t>(pcm.mSampleRate)).value();
    configuration->mode = modeOf(options, pcm.mChannelsPerFrame, file);
    configuration->subband = subbands == 8 ? Coding::Subband::_8 : Coding::Subband::_4;
    configuration->blocks =
        Coding::blockFromRawValue(options.blocks.value_or(16) / 4 - 1).value_or(Coding::Block::_16);
    configuration->allocation = options.allocation == "snr" ? Coding::AllocationMethod::SNR
                                                            : Coding::AllocationMethod::loudness;
    configuration->endian = (pcm.mFormatFlags & zav::kAudioFormatFlagIsBigEndian) != 0
                                ? Coding::Endianess::big
                                : Coding::Endianess::little;

    const std::uint32_t largest = largestBitpool(configuration->mode, subbands);
    if (bitpool > largest) {
        throw UsageFailure("--bitpool " + std::to_string(bitpool) + "; use 2 to " +
                           std::to_string(largest) + " for " +
                           std::string(nameOf(configuration->mode)) + " with " +
                           std::to_string(subbands) + " subbands");
    }
    configuration->bitpool = static_cast<std::uint8_t>(bitpool);
    return configuration;
}

}  // namespace zavtool
