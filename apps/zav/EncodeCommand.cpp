#include "EncodeCommand.hpp"

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/codecs/SBCEncoder.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/sinks/FileSink.hpp>
#include <algorithm>

#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "OutputFile.hpp"

namespace zavtool {
namespace {

using Coding = zav::SBCCoding;

/// The largest bitpool that SBC has for these settings.
std::uint32_t largestBitpool(Coding::ChannelMode mode, std::uint32_t subbands) {
    constexpr std::uint32_t kLargestOfAll = 250;
    const bool isPerChannel =
        mode == Coding::ChannelMode::mono || mode == Coding::ChannelMode::dual;
    return std::min((isPerChannel ? 16 : 32) * subbands, kLargestOfAll);
}

/// The name as a shell takes it.
std::string quoted(const std::string& name) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/-+,";
    if (!name.starts_with('-') && name.find_first_not_of(kPlain) == std::string::npos) {
        return name;
    }
    std::string text = name.starts_with('-') ? "'./" : "'";
    for (const char letter : name) {
        text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return text + "'";
}

std::string convertingHint(const std::filesystem::path& input, const std::string& soxArguments) {
    return " (to convert: sox " + quoted(input.string()) + " " + soxArguments + ")";
}

Coding::Frequency frequencyOf(const zav::AudioStreamBasicDescription& pcm,
                              const std::filesystem::path& input) {
    const auto rate = static_cast<std::int64_t>(pcm.mSampleRate);
    const auto frequency = Coding::frequencyFromRawValue(rate);
    if (!frequency) {
        throw Failure(input, std::to_string(rate) + " Hz; 16000, 32000, 44100 or 48000 Hz" +
                                 convertingHint(input, "-r 16000 converted.wav"));
    }
    return *frequency;
}

void require16BitPcm(const zav::AudioStreamBasicDescription& format,
                     const std::filesystem::path& input) {
    const bool is16BitInteger = format.mFormatID == zav::kAudioFormatLinearPCM &&
                                format.mBitsPerChannel == 16 &&
                                (format.mFormatFlags & zav::kAudioFormatFlagIsFloat) == 0;
    if (!is16BitInteger) {
        const bool isSbc = format.mFormatID == zav::kAudioFormatSbc;
        throw Failure(
            input,
            inWords(format) + "; 16-bit PCM" +
                (isSbc ? "" : convertingHint(input, "-e signed-integer -b 16 converted.wav")));
    }
    if (format.mChannelsPerFrame > 2) {
        throw Failure(input, channelsInWords(format.mChannelsPerFrame) + "; mono or stereo" +
                                 convertingHint(input, "converted.wav remix 1 2"));
    }
}

Coding::ChannelMode modeOf(const EncodeOptions& options, std::uint32_t channelCount) {
    const bool isMono = channelCount == 1;
    if (!options.mode) {
        return isMono ? Coding::ChannelMode::mono : Coding::ChannelMode::stereo;
    }
    const auto mode = modeNamed(*options.mode);
    if (!mode || (*mode == Coding::ChannelMode::mono) != isMono) {
        throw Failure(options.files.input,
                      channelsInWords(channelCount) + " audio for --mode " + *options.mode + "; " +
                          (isMono ? "--mode mono" : "--mode dual, stereo or joint"));
    }
    return *mode;
}

std::shared_ptr<Coding::SBCConfiguration> configurationFor(
    const EncodeOptions& options, const zav::AudioStreamBasicDescription& pcm) {
    require16BitPcm(pcm, options.files.input);
    auto configuration = std::make_shared<Coding::SBCConfiguration>();
    configuration->freq = frequencyOf(pcm, options.files.input);
    configuration->mode = modeOf(options, pcm.mChannelsPerFrame);
    configuration->subband = options.subbands == 8 ? Coding::Subband::_8 : Coding::Subband::_4;
    configuration->blocks =
        Coding::blockFromRawValue(options.blocks / 4 - 1).value_or(Coding::Block::_16);
    configuration->allocation = options.allocation == "snr" ? Coding::AllocationMethod::SNR
                                                            : Coding::AllocationMethod::loudness;
    configuration->endian = (pcm.mFormatFlags & zav::kAudioFormatFlagIsBigEndian) != 0
                                ? Coding::Endianess::big
                                : Coding::Endianess::little;

    const std::uint32_t largest = largestBitpool(configuration->mode, options.subbands);
    if (options.bitpool > largest) {
        throw UsageFailure("--bitpool " + std::to_string(options.bitpool) + "; 2 to " +
                           std::to_string(largest) + " for " +
                           std::string(nameOf(configuration->mode)) + " with " +
                           std::to_string(options.subbands) + " subbands");
    }
    configuration->bitpool = static_cast<std::uint8_t>(options.bitpool);
    return configuration;
}

}  // namespace

void encode(const EncodeOptions& options, const CommonOptions& common) {
    const FileType* const type = typeForName(options.files.output);
    if (type == nullptr || type->id != zav::kAudioFileSBCType) {
        throw UsageFailure(options.files.output.string() + ": not a name for SBC frames; NAME.sbc");
    }

    // The graph: each node is made on the one before it.
    const auto source = openSource(options.files.input);
    const zav::AudioStreamBasicDescription pcm = source->outDataFormat();
    const auto configuration = configurationFor(options, pcm);
    OutputFile output(options.files.output, options.files.input);
    reportFatalStopsFor(options.files.input, options.files.output);

    const auto encoder = zav::makeNode<zav::SBCEncoder>(source, configuration);
    output.requireRoomFor(*type, encoder->outDataFormat());
    const auto sink = zav::makeNode<zav::FileSink>(encoder, output.temporaryPath(), type->id);
    const auto pcmMeter = zav::makeNode<Meter>(source);
    const auto sbcMeter = zav::makeNode<Meter>(encoder);
    const zav::AudioStreamBasicDescription sbc = encoder->outDataFormat();
    showGraph(common, "FileSource (" + inWords(pcm) + ") -> SBCEncoder (" +
                          std::string(nameOf(configuration->mode)) + ", bitpool " +
                          std::to_string(configuration->bitpool) + ") -> FileSink");

    Progress progress(common.isQuiet);
    pump(*source, options.files.input, sbc.mFramesPerPacket, progress);
    if (sbcMeter->packetCount() == 0) {
        throw Failure(options.files.input,
                      std::to_string(pcmMeter->packetCount()) + " sample frames; at least the " +
                          std::to_string(sbc.mFramesPerPacket) + " of one SBC frame");
    }
    output.commit(sbcMeter->byteCount());

    const double seconds = static_cast<double>(pcmMeter->packetCount()) / pcm.mSampleRate;
    progress.finish(options.files.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(sbcMeter->packetCount()) + " SBC frames of " +
                        std::to_string(sbc.mBytesPerPacket) + " bytes",
                    seconds);
}

}  // namespace zavtool
