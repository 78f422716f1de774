#include "CopyCommand.hpp"

#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>

#include "Container.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "Hint.hpp"
#include "Input.hpp"
#include "OutputFile.hpp"

namespace zavtool {
namespace {

/// A copy contains whole packets only, so bytes after the last whole frame would be lost.
void requireWholeFrames(const std::filesystem::path& input) {
    if (examineSbcContainer(input)) {
        return;  // `openInput` has checked this container
    }
    const OpenAudioFile file = openAudioFile(input);
    const auto audioSize = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataByteCount);
    if (audioSize < std::filesystem::file_size(input)) {
        throw sbcDamage(input, file);
    }
}

}  // namespace

void copy(const FilePair& files, const CommonOptions& common) {
    const FileType* const type = typeForName(files.output);
    if (type == nullptr) {
        throw UsageFailure(shown(files.output) + ": a name of unknown type; use a name with " +
                           extensionsOfTypes([](const FileType&) { return true; }));
    }
    const auto input = openInput(files.input);
    zav::AudioStreamBasicDescription format = input->format();
    auto stream = input->node();
    if (format.mFormatID == zav::kAudioFormatSbc) {
        requireWholeFrames(files.input);
        if (type->id == kSbcContainerType) {
            format = with16Bits(format);
            stream = redeclared(stream, format);
        }
    }
    OutputFile output(files.output, files.input);
    const auto cookie = input->magicCookie().value_or(std::vector<std::byte>());
    output.requireRoomFor(*type, format, cookie,
                          hintAtOtherVerb(format, *type, files.input, files.output));
    reportFatalStopsFor(files.input, files.output);

    const CookieReader cookieOfInput = [&cookie] { return std::vector(cookie); };
    output.addSink(stream, *type, cookie.empty() ? CookieReader() : cookieOfInput);
    const auto counter = zav::makeNode<StreamCounter>(stream);
    showGraph(common, input->nodeName() + " (" + inWords(format) + ") -> " +
                          std::string(nodeNameOf(*type)) + " (" + std::string(type->name) + ")");

    ProgressLine progress(common.isQuiet);
    pump(*input, 1, progress);
    output.commit(counter->packetCount(), counter->byteCount());
    const double seconds = input->durationInSeconds();
    progress.finish(files.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(counter->packetCount()) + " packets",
                    seconds);
}

}  // namespace zavtool
