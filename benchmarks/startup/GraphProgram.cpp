// Builds a PCM, an SBC and an Opus graph on the shared library, and ends. The difference from
// EmptyProgram is the cost of linking the library and building graphs. Pushes no audio. With the
// name of an audio file, the program also opens that file as a source.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <cstdio>
#include <exception>
#include <memory>

namespace {

void buildGraphs(const char* fileName) {
    const auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(zav::linearPcm(16000, 1));
    const auto sbcEncoder = zav::makeNode<zav::SBCEncoder>(
        source, std::make_shared<zav::SBCCoding::SBCConfiguration>());
    const auto sbcDecoder = zav::makeNode<zav::SBCDecoder>(sbcEncoder);
    zav::makeNode<zav::PeripheralSink>(sbcDecoder);
    const auto opusEncoder = zav::makeNode<zav::OpusEncoder>(source);
    const auto opusDecoder = zav::makeNode<zav::OpusDecoder>(opusEncoder);
    zav::makeNode<zav::PeripheralSink>(opusDecoder);

    if (fileName != nullptr) {
        const auto file = zav::makeNode<zav::FileSource>(fileName);
        zav::makeNode<zav::PeripheralSink>(file);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        buildGraphs(argumentCount > 1 ? arguments[1] : nullptr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zav_startup_graph: %s\n", error.what());
        return 1;
    }
    return 0;
}
