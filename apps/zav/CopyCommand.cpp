#include "CopyCommand.hpp"

#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/sinks/FileSink.hpp>
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

bool canHold(const FileType& type, const zav::AudioStreamBasicDescription& format,
             const std::filesystem::path& path) {
    zav::AudioFileID file = nullptr;
    if (zav::AudioFileCreateWithURL(path, type.id, &format, zav::kAudioFileFlags_EraseFile,
                                    &file) != zav::noErr) {
        return false;
    }
    zav::AudioFileClose(file);
    return true;
}

void requireTypeFor(const zav::AudioStreamBasicDescription& format, const FileType& wanted,
                    const CopyOptions& options, const std::filesystem::path& temporaryPath) {
    if (canHold(wanted, format, temporaryPath)) {
        return;
    }
    std::vector<std::string> extensions;
    for (const FileType& type : fileTypes()) {
        if (canHold(type, format, temporaryPath)) {
            extensions.push_back("." + std::string(type.extensions.front()));
        }
    }
    throw Failure(options.output, std::string(wanted.name) + " cannot hold " + inWords(format) +
                                      "; " + listed(extensions));
}

}  // namespace

void copy(const CopyOptions& options, const CommonOptions& common) {
    const FileType* const type = typeForName(options.output);
    if (type == nullptr) {
        throw UsageFailure(options.output.string() + ": a name of unknown type; a name with " +
                           extensionsOfTypes([](const FileType&) { return true; }));
    }
    const auto source = openSource(options.input);
    const zav::AudioStreamBasicDescription format = source->outDataFormat();
    OutputFile output(options.output, options.input);
    requireTypeFor(format, *type, options, output.temporaryPath());
    reportFatalStopsFor(options.input, options.output);

    const auto sink = zav::makeNode<zav::FileSink>(source, output.temporaryPath(), type->id);
    const auto meter = zav::makeNode<Meter>(source);
    if (type->id == zav::kAudioFileCAFType) {
        if (auto cookie = magicCookie(options.input)) {
            zav::makeNode<CookieSetter>(source, sink, std::move(*cookie));
        }
    }
    showGraph(common,
              "FileSource (" + inWords(format) + ") -> FileSink (" + std::string(type->name) + ")");

    Progress progress(common.isQuiet);
    pump(*source, options.input, 1, progress);
    output.commit(meter->byteCount());
    const double seconds =
        static_cast<double>(meter->packetCount()) * format.mFramesPerPacket / format.mSampleRate;
    progress.finish(options.output.string() + ": " + secondsText(seconds) + ", " +
                        std::to_string(meter->packetCount()) + " packets",
                    seconds);
}

}  // namespace zavtool
