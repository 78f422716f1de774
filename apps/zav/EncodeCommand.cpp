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

/// The 16-bit PCM, mono or stereo, that an encoder takes.
struct Encodable {
    std::vector<double> rates;
    double usualRate;
    std::string forWhat;  ///< " for ...", after the rates in a message
    bool isBigEndianTaken;
};

Encodable encodableToSbc() {
    return {{16000, 32000, 44100, 48000}, 16000, "", true};
}

Encodable encodableToOpus(const FileType& type) {
    Encodable opus{
        {8000, 12000, 16000, 24000, 48000}, 48000, " for " + std::string(type.name), false};
    if (type.id == kOpusContainerType) {
        opus.rates = {8000, 16000, 48000};  // the container allows fewer than the codec
    }
    return opus;
}

void requireEncodable(const zav::AudioStreamBasicDescription& format, const Encodable& encodable,
                      const std::filesystem::path& input) {
    constexpr std::uint32_t kMostChannels = 2;
    const bool isRateTaken = std::find(encodable.rates.begin(), encodable.rates.end(),
                                       format.mSampleRate) != encodable.rates.end();
    const bool hasTooManyChannels = format.mChannelsPerFrame > kMostChannels;
    const std::string hint =
        to16BitPcmHint(format, input,
                       {hasTooManyChannels ? kMostChannels : 0,
                        isRateTaken ? 0 : static_cast<std::uint32_t>(encodable.usualRate)});
    const bool is16BitInteger = format.mFormatID == zav::kAudioFormatLinearPCM &&
                                format.mBitsPerChannel == 16 &&
                                (format.mFormatFlags & zav::kAudioFormatFlagIsFloat) == 0;
    if (!is16BitInteger) {
        throw Failure(input, inWords(format) + "; use 16-bit PCM" + hint);
    }
    if (hasTooManyChannels) {
        throw Failure(input,
                      channelsInWords(format.mChannelsPerFrame) + "; use mono or stereo" + hint);
    }
    if (!encodable.isBigEndianTaken &&
        (format.mFormatFlags & zav::kAudioFormatFlagIsBigEndian) != 0) {
        throw Failure(input, inWords(format) + "; use little-endian samples" + hint);
    }
    if (!isRateTaken) {
        std::vector<std::string> words;
        words.reserve(encodable.rates.size());
        for (const double rate : encodable.rates) {
            words.push_back(std::to_string(static_cast<int>(rate)));
        }
        throw Failure(input, rateInWords(format.mSampleRate) + "; use " + listed(words) + " Hz" +
                                 encodable.forWhat + hint);
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
        throw UsageFailure(shown(output) +
                           ": not a name for SBC frames or Opus packets; use NAME.sbc, .zsbc, "
                           ".opus, .ogg or .zopus");
    }
    const bool isOpus = options.codec ? *options.codec == "opus" : isOpusType;
    if (!isOpus && !isSbcType) {
        throw UsageFailure(shown(output) + ": not a name for SBC frames; use NAME.sbc or .zsbc");
    }
    if (isOpus && isSbcType) {
        throw UsageFailure(shown(output) +
                           ": not a name for Opus packets; use NAME.opus, .ogg or .zopus");
    }
    if (isOpus) {
        requireNoSbcOptions(options.sbc, output, "Opus");
    }
    return {isOpus, type};
}

/// An encoder on the input, and its words for the summary.
struct Encoding {
    std::shared_ptr<zav::AudioStreamOutputable> encoder;
    std::string inWords;            ///< for --verbose
    std::uint32_t framesPerPacket;  ///< PCM frames that one packet encodes
    std::string packetWord;         ///< "SBC frame"
};

Encoding makeSbcEncoder(const EncodeOptions& options, const Input& input) {
    requireEncodable(input.format(), encodableToSbc(), options.files.input);
    const auto configuration = configurationFor(options.sbc, input.format(), options.files.input);
    const auto encoder = zav::makeNode<zav::SBCEncoder>(input.node(), configuration);
    return {encoder,
            "SBCEncoder (" + std::string(nameOf(configuration->mode)) + ", bitpool " +
                std::to_string(configuration->bitpool) + ")",
            encoder->outDataFormat().mFramesPerPacket, "SBC frame"};
}

Encoding makeOpusEncoder(const EncodeOptions& options, const Input& input, const FileType& type) {
    requireEncodable(input.format(), encodableToOpus(type), options.files.input);
    const auto encoder = zav::makeNode<zav::OpusEncoder>(input.node());
    return {encoder, "OpusEncoder", static_cast<std::uint32_t>(encoder->frameCountPerPkt()),
            "Opus packet"};
}

}  // namespace

void encode(const EncodeOptions& options, const CommonOptions& common) {
    const auto [isOpus, type] = targetOf(options);

    // The graph: each node is made on the previous node.
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
    const auto pcmCounter = zav::makeNode<StreamCounter>(input->node());
    const auto packetCounter = zav::makeNode<StreamCounter>(stream);
    showGraph(common, input->nodeName() + " (" + inWords(pcm) + ") -> " + encoding.inWords +
                          (type->id == kSbcContainerType ? " -> PeripheralSource -> " : " -> ") +
                          std::string(nodeNameOf(*type)));

    ProgressLine progress(common.isQuiet);
    pump(*input, encoding.framesPerPacket, progress);
    if (packetCounter->packetCount() == 0) {
        throw Failure(options.files.input, std::to_string(pcmCounter->packetCount()) +
                                               " sample frames; use at least the " +
                                               std::to_string(encoding.framesPerPacket) +
                                               " of one " + encoding.packetWord);
    }
    output.commit(packetCounter->packetCount(), packetCounter->byteCount());

    const std::uint64_t frameCount = packetCounter->packetCount() * encoding.framesPerPacket;
    const double seconds = static_cast<double>(frameCount) / pcm.mSampleRate;
    const double leftOut =
        static_cast<double>(pcmCounter->packetCount() - frameCount) / pcm.mSampleRate;
    const double bitsPerSecond = 8.0 * static_cast<double>(packetCounter->byteCount()) / seconds;
    progress.finish(options.files.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(packetCounter->packetCount()) + " " + encoding.packetWord +
                        "s, " + bitRateText(bitsPerSecond) +
                        (leftOut > 0 ? ", " + millisecondsText(leftOut) + " left out" : ""),
                    seconds);
}

}  // namespace zavtool
