#include "DecodeCommand.hpp"

#include <ZAVAudioStreaming/codecs/SBCConfiguration.hpp>
#include <ZAVAudioStreaming/codecs/SBCDecoder.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <ZAVAudioStreaming/sinks/FileSink.hpp>
#include <algorithm>

#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "OutputFile.hpp"

namespace zavtool {
namespace {

using Configuration = zav::SBCCoding::SBCConfiguration;

/// Hands a stream on to a `PeripheralSource`, where it can be declared in another format: what an
/// application does with bytes that come from its peripheral.
class Relay : public zav::PeripheralSink {
 public:
    Relay(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
          std::shared_ptr<zav::PeripheralSource> next)
        : PeripheralSink(key, upstream), next_(std::move(next)) {}

    void onAudioStreamFlowStart() override { next_->downstreams().onAudioStreamFlowStart(); }
    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription* packetDescriptions) override {
        next_->downstreams().receiveAudio(bytes, size, packetNum, packetDescriptions);
    }
    void onAudioStreamFlowEnd() override { next_->downstreams().onAudioStreamFlowEnd(); }

 private:
    std::shared_ptr<zav::PeripheralSource> next_;
};

bool isPcmType(const FileType& type) {
    return type.id != zav::kAudioFileSBCType;
}

/// The types that hold 16-bit samples only with the high byte first.
bool isBigEndianType(zav::AudioFileTypeID type) {
    return type == zav::kAudioFileAIFFType || type == zav::kAudioFileNextType;
}

/// The decoder takes every two-channel stream for plain stereo and stops the process at frames of
/// another length, so these are found before it sees them.
void requireFramesOfOneLength(const std::filesystem::path& input,
                              const zav::AudioStreamBasicDescription& sbc) {
    const OpenAudioFile file = openAudioFile(input);
    const auto frame = firstPacket(file, input);
    const auto inFrame = Configuration::fromFrame(frame.data(), frame.size());
    const std::size_t decoderLength = Configuration::fromDataFormat(sbc)->frameLen();
    if (inFrame != nullptr && frame.size() != decoderLength) {
        throw Failure(input, std::string(nameOf(inFrame->mode)) + " frames of " +
                                 std::to_string(frame.size()) +
                                 " bytes; mono, or plain stereo frames of " +
                                 std::to_string(decoderLength) + " bytes");
    }
    const auto frameCount = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataPacketCount);
    const auto byteCount = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataByteCount);
    const auto longestFrame =
        zav::audioFileProperty<std::uint32_t>(file.get(), zav::kAudioFilePropertyMaximumPacketSize);
    if (longestFrame != sbc.mBytesPerPacket || byteCount != frameCount * longestFrame) {
        throw Failure(input, "frames of different lengths, the longest " +
                                 std::to_string(longestFrame) + " bytes; frames of one length");
    }
}

}  // namespace

void decode(const FilePair& files, const CommonOptions& common) {
    const FileType* const type = typeForName(files.output);
    if (type == nullptr || !isPcmType(*type)) {
        throw UsageFailure(files.output.string() + ": not a name for PCM audio; a name with " +
                           extensionsOfTypes(isPcmType));
    }
    const auto source = openSource(files.input);
    zav::AudioStreamBasicDescription sbc = source->outDataFormat();
    if (sbc.mFormatID != zav::kAudioFormatSbc) {
        throw Failure(files.input, inWords(sbc) + "; raw SBC frames");
    }
    requireFramesOfOneLength(files.input, sbc);
    OutputFile output(files.output, files.input);
    reportFatalStopsFor(files.input, files.output);

    // SBC frames carry no byte order: the stream's format tells the decoder which one to make.
    std::shared_ptr<zav::AudioStreamOutputable> sbcStream = source;
    if (isBigEndianType(type->id)) {
        const auto redeclared = zav::makeNode<zav::PeripheralSource>();
        sbc.mFormatFlags |= zav::kSbcFormatFlagIsBigEndian;
        redeclared->setOutDataFormat(sbc);
        zav::makeNode<Relay>(source, redeclared);
        sbcStream = redeclared;
    }
    const auto decoder = zav::makeNode<zav::SBCDecoder>(sbcStream);
    const auto sink = zav::makeNode<zav::FileSink>(decoder, output.temporaryPath(), type->id);
    const auto pcmMeter = zav::makeNode<Meter>(decoder);
    const zav::AudioStreamBasicDescription pcm = decoder->outDataFormat();
    output.requireRoomFor(*type, pcm);
    showGraph(common,
              "FileSource (" + inWords(sbc) + ") -> SBCDecoder -> FileSink (" + inWords(pcm) + ")");

    Progress progress(common.isQuiet);
    pump(*source, files.input, 1, progress);
    output.commit(pcmMeter->byteCount());

    const std::uint64_t frameCount = pcmMeter->byteCount() / pcm.mBytesPerFrame;
    const double seconds = static_cast<double>(frameCount) / pcm.mSampleRate;
    progress.finish(files.output.string() + ": " + secondsText(seconds) + ", " + inWords(pcm),
                    seconds);
}

}  // namespace zavtool
