#include "CopyCommand.hpp"

#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <ZAVAudioStreaming/sinks/FileSink.hpp>
#include <optional>
#include <utility>

#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "OutputFile.hpp"

namespace zavtool {
namespace {

/// Gives a file its magic cookie as soon as it is open. It must be added to the source after the
/// sink: targets are called in the order in which they were added.
class CookieSetter : public zav::PeripheralSink {
 public:
    CookieSetter(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                 std::shared_ptr<zav::FileSink> sink, std::vector<std::byte> cookie)
        : PeripheralSink(key, upstream), sink_(std::move(sink)), cookie_(std::move(cookie)) {}

    void onAudioStreamFlowStart() override { sink_->setMagicCookie(cookie_); }

 private:
    std::shared_ptr<zav::FileSink> sink_;
    std::vector<std::byte> cookie_;
};

/// Packets are copied, so bytes that belong to no packet would be lost.
void requireWholeFrames(const std::filesystem::path& input) {
    const OpenAudioFile file = openAudioFile(input);
    const auto audioSize = zav::audioFileProperty<std::uint64_t>(
        file.get(), zav::kAudioFilePropertyAudioDataByteCount);
    const std::uint64_t rest = std::filesystem::file_size(input) - audioSize;
    if (rest > 0) {
        throw Failure(input, "ends with " + std::to_string(rest) +
                                 " bytes that are no whole SBC frame; whole frames");
    }
}

}  // namespace

void copy(const FilePair& files, const CommonOptions& common) {
    const FileType* const type = typeForName(files.output);
    if (type == nullptr) {
        throw UsageFailure(files.output.string() + ": a name of unknown type; a name with " +
                           extensionsOfTypes([](const FileType&) { return true; }));
    }
    const auto source = openSource(files.input);
    const zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (format.mFormatID == zav::kAudioFormatSbc) {
        requireWholeFrames(files.input);
    }
    const auto cookie = type->id == zav::kAudioFileCAFType
                            ? magicCookie(openAudioFile(files.input), files.input)
                            : std::nullopt;
    OutputFile output(files.output, files.input);
    output.requireRoomFor(*type, format, cookie ? *cookie : std::vector<std::byte>());
    reportFatalStopsFor(files.input, files.output);

    const auto sink = zav::makeNode<zav::FileSink>(source, output.temporaryPath(), type->id);
    const auto meter = zav::makeNode<Meter>(source);
    if (cookie) {
        zav::makeNode<CookieSetter>(source, sink, *cookie);
    }
    showGraph(common,
              "FileSource (" + inWords(format) + ") -> FileSink (" + std::string(type->name) + ")");

    Progress progress(common.isQuiet);
    pump(*source, files.input, 1, progress);
    output.commit(meter->byteCount());
    const double seconds =
        static_cast<double>(meter->packetCount()) * format.mFramesPerPacket / format.mSampleRate;
    progress.finish(files.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(meter->packetCount()) + " packets",
                    seconds);
}

}  // namespace zavtool
