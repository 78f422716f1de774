#include "DecodeCommand.hpp"

#include <ZAVAudioStreaming/core/MakeNode.hpp>

#include "Container.hpp"
#include "Decoding.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "Hint.hpp"
#include "Input.hpp"
#include "OutputFile.hpp"

namespace zavtool {

void decode(const FilePair& files, const CommonOptions& common) {
    const FileType* const type = typeForName(files.output);
    if (type == nullptr || !holdsPcm(*type)) {
        throw UsageFailure(shown(files.output) + ": not a name for PCM audio; use a name with " +
                           extensionsOfTypes(holdsPcm));
    }
    if (const auto container = examineSbcContainer(files.input)) {
        throw Failure(files.input,
                      "an SBC container, which the library does not read back, by design: it does "
                      "not store the channel mode; use raw SBC frames" +
                          rawSbcHint(files.input, isDecodable(*container)));
    }
    const auto input = openInput(files.input);
    const zav::AudioStreamBasicDescription format = input->format();
    if (format.mFormatID != zav::kAudioFormatSbc && format.mFormatID != zav::kAudioFormatOpus) {
        const bool isPcm = format.mFormatID == zav::kAudioFormatLinearPCM;
        throw Failure(files.input, inWords(format) + "; use SBC or Opus" +
                                       (isPcm ? copyHint(files.input, files.output)
                                              : to16BitPcmHint(format, files.input)));
    }
    const Decoding decoding = format.mFormatID == zav::kAudioFormatSbc
                                  ? makeSbcDecoder(*input, files.input, holdsHighBytesFirst(*type))
                                  : makeOpusDecoder(*input, files.input);
    const zav::AudioStreamBasicDescription pcm = decoding.pcm->outDataFormat();
    OutputFile output(files.output, files.input);
    output.requireRoomFor(*type, pcm);
    reportFatalStopsFor(files.input, files.output);
    output.addSink(decoding.pcm, *type);
    const auto pcmCounter = zav::makeNode<StreamCounter>(decoding.pcm);
    showGraph(common, input->nodeName() + " (" + inWords(format) + ") -> " + decoding.inWords +
                          " -> FileSink (" + inWords(pcm) + ")");

    ProgressLine progress(common.isQuiet);
    pump(*input, 1, progress);
    if (pcmCounter->byteCount() == 0) {
        throw Failure(files.input, "contains no audio; use a file with at least one packet");
    }
    output.commit(pcmCounter->packetCount(), pcmCounter->byteCount());

    const std::uint64_t frameCount = pcmCounter->byteCount() / pcm.mBytesPerFrame;
    const double seconds = static_cast<double>(frameCount) / pcm.mSampleRate;
    progress.finish(files.output.string() + ": " + secondsText(seconds) + ", " + inWords(pcm),
                    seconds);
}

}  // namespace zavtool
