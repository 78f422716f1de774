#include "EncodeCommand.hpp"

#include <ZAVAudioStreaming/codecs/OpusEncoder.hpp>
#include <ZAVAudioStreaming/codecs/SBCEncoder.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <algorithm>

#include "Container.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "Hint.hpp"
#include "Input.hpp"
#include "OutputFile.hpp"
#include "SbcOptions.hpp"

namespace zavtool {
namespace {

void requireSbcRate(const zav::AudioStreamBasicDescription& pcm,
                    const std::filesystem::path& input) {
    const auto rate = static_cast<std::int64_t>(pcm.mSampleRate);
    if (!zav::SBCCoding::frequencyFromRawValue(rate)) {
        throw Failure(input, std::to_string(rate) + " Hz; 16000, 32000, 44100 or 48000 Hz" +
                                 soxHint(input, "-r 16000 converted.wav"));
    }
}

void require16BitPcm(const zav::AudioStreamBasicDescription& format,
                     const std::filesystem::path& input) {
    const bool is16BitInteger = format.mFormatID == zav::kAudioFormatLinearPCM &&
                                format.mBitsPerChannel == 16 &&
                                (format.mFormatFlags & zav::kAudioFormatFlagIsFloat) == 0;
    if (!is16BitInteger) {
        throw Failure(input, inWords(format) + "; 16-bit PCM" + to16BitPcmHint(format, input));
    }
    if (format.mChannelsPerFrame > 2) {
        throw Failure(input, channelsInWords(format.mChannelsPerFrame) + "; mono or stereo" +
                                 soxHint(input, "-c 2 converted.wav"));
    }
}

/// The codec to use, and the type of file to make.
struct Target {
    bool isOpus;
    const FileType* type;
};

Target targetOf(const EncodeOptions& options) {
    const std::filesystem::path& output = options.files.output;
    const FileType* const type = typeForName(output);
    const bool isSbcType = type != nullptr && holdsSbc(*type);
    const bool isOpusType = type != nullptr && holdsOpus(*type);
    if (type == nullptr || (!isSbcType && !isOpusType && !options.codec)) {
        throw UsageFailure(output.string() +
                           ": not a name for SBC frames or Opus packets; NAME.sbc, .zsbc, "
                           ".opus, .ogg or .zopus");
    }
    const bool isOpus = options.codec ? *options.codec == "opus" : isOpusType;
    if (!isOpus && !isSbcType) {
        throw UsageFailure(output.string() + ": not a name for SBC frames; NAME.sbc or .zsbc");
    }
    if (isOpus && isSbcType) {
        throw UsageFailure(output.string() +
                           ": not a name for Opus packets; NAME.opus, .ogg or .zopus");
    }
    if (isOpus && options.sbc.areGiven()) {
        throw UsageFailure(
            "--bitpool, --mode, --subbands, --blocks or --allocation for Opus; these are SBC's");
    }
    return {isOpus, type};
}

void requireOpusInput(const zav::AudioStreamBasicDescription& pcm, const FileType& type,
                      const std::filesystem::path& input) {
    require16BitPcm(pcm, input);
    if ((pcm.mFormatFlags & zav::kAudioFormatFlagIsBigEndian) != 0) {
        throw Failure(input, inWords(pcm) + "; little-endian" +
                                 soxHint(input, "-e signed-integer -b 16 converted.wav"));
    }
    // The container's list of rates is not the codec's.
    std::vector<double> rates = {8000, 12000, 16000, 24000, 48000};
    if (type.id == kOpusContainerType) {
        rates = {8000, 16000, 48000};
    }
    if (std::find(rates.begin(), rates.end(), pcm.mSampleRate) == rates.end()) {
        std::vector<std::string> words;
        words.reserve(rates.size());
        for (const double rate : rates) {
            words.push_back(std::to_string(static_cast<int>(rate)));
        }
        throw Failure(input, rateInWords(pcm.mSampleRate) + "; " + listed(words) + " Hz for " +
                                 std::string(type.name) + soxHint(input, "-r 48000 converted.wav"));
    }
}

/// Made on the source; what the run says of it at its end.
struct Encoding {
    std::shared_ptr<zav::AudioStreamOutputable> encoder;
    std::string inWords;            ///< for --verbose
    std::uint32_t framesPerPacket;  ///< PCM frames that one packet encodes
    std::string packetWord;         ///< "SBC frame"
};

Encoding makeSbcEncoder(const EncodeOptions& options, const Input& input) {
    require16BitPcm(input.format(), options.files.input);
    requireSbcRate(input.format(), options.files.input);
    const auto configuration = configurationFor(options.sbc, input.format(), options.files.input);
    const auto encoder = zav::makeNode<zav::SBCEncoder>(input.node(), configuration);
    return {encoder,
            "SBCEncoder (" + std::string(nameOf(configuration->mode)) + ", bitpool " +
                std::to_string(configuration->bitpool) + ")",
            encoder->outDataFormat().mFramesPerPacket, "SBC frame"};
}

Encoding makeOpusEncoder(const EncodeOptions& options, const Input& input, const FileType& type) {
    requireOpusInput(input.format(), type, options.files.input);
    const auto encoder = zav::makeNode<zav::OpusEncoder>(input.node());
    return {encoder, "OpusEncoder", static_cast<std::uint32_t>(encoder->frameCountPerPkt()),
            "Opus packet"};
}

}  // namespace

void encode(const EncodeOptions& options, const CommonOptions& common) {
    const auto [isOpus, type] = targetOf(options);

    // The graph: each node is made on the one before it.
    const auto input = openInput(options.files.input);
    const zav::AudioStreamBasicDescription pcm = input->format();
    const Encoding encoding =
        isOpus ? makeOpusEncoder(options, *input, *type) : makeSbcEncoder(options, *input);
    OutputFile output(options.files.output, options.files.input);
    reportFatalStopsFor(options.files.input, options.files.output);

    auto stream = encoding.encoder;
    if (type->id == kSbcContainerType) {
        stream = redeclared(stream, with16Bits(stream->outDataFormat()));
    }
    output.requireRoomFor(*type, stream->outDataFormat());
    output.addSink(stream, *type);
    const auto pcmMeter = zav::makeNode<Meter>(input->node());
    const auto packetMeter = zav::makeNode<Meter>(stream);
    showGraph(common, input->nodeName() + " (" + inWords(pcm) + ") -> " + encoding.inWords +
                          (type->id == kSbcContainerType ? " -> PeripheralSource -> " : " -> ") +
                          std::string(nodeNameOf(*type)));

    Progress progress(common.isQuiet);
    pump(*input, encoding.framesPerPacket, progress);
    if (packetMeter->packetCount() == 0) {
        throw Failure(options.files.input, std::to_string(pcmMeter->packetCount()) +
                                               " sample frames; at least the " +
                                               std::to_string(encoding.framesPerPacket) +
                                               " of one " + encoding.packetWord);
    }
    output.commit(packetMeter->packetCount(), packetMeter->byteCount());

    const std::uint64_t frameCount = packetMeter->packetCount() * encoding.framesPerPacket;
    const double seconds = static_cast<double>(frameCount) / pcm.mSampleRate;
    const double leftOut =
        static_cast<double>(pcmMeter->packetCount() - frameCount) / pcm.mSampleRate;
    const double bitsPerSecond = 8.0 * static_cast<double>(packetMeter->byteCount()) / seconds;
    progress.finish(options.files.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(packetMeter->packetCount()) + " " + encoding.packetWord +
                        "s, " + bitRateText(bitsPerSecond) +
                        (leftOut > 0 ? ", " + millisecondsText(leftOut) + " left out" : ""),
                    seconds);
}

}  // namespace zavtool
