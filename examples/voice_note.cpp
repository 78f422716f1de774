// Records a voice note, until Enter, into an M4A file:
//
//     RecordSource, which encodes AAC -> VoiceNote, a FileSink
//
//     voice_note note.m4a
//
// A player needs the encoder's magic cookie. The source returns it, and the file stores it.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <cstdio>
#include <future>
#include <stdexcept>

namespace {

/// Writes the source's cookie into the file when the flow starts, before the first packet.
class VoiceNote : public zav::FileSink {
 public:
    /// The source owns this sink and outlives it.
    VoiceNote(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
              const zav::RecordSource& source, const char* path)
        : FileSink(key, upstream, path, zav::kAudioFileM4AType), source_(source) {}

    void onAudioStreamFlowStart() override {
        FileSink::onAudioStreamFlowStart();
        setMagicCookie(source_.magicCookie());
    }

 private:
    const zav::RecordSource& source_;
};

void record(const char* path) {
    const auto source = zav::makeNode<zav::RecordSource>(
        zav::AudioStreamBasicDescription{.mSampleRate = 48000,
                                         .mFormatID = zav::kAudioFormatMPEG4AAC,
                                         .mFramesPerPacket = 1024,
                                         .mChannelsPerFrame = 1});
    zav::makeNode<VoiceNote>(source, *source, path);

    source->record();
    std::puts("Recording. Enter ends it.");
    std::getchar();
    const bool isLost = !source->isRecording();
    // The stop hands over the last audio. Then the file is closed, and the completion runs.
    const auto ended = std::make_shared<std::promise<void>>();
    source->stop([ended] { ended->set_value(); });
    ended->get_future().wait();
    if (isLost) {
        throw std::runtime_error("the sound server went away: the note is not complete");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: voice_note NOTE.m4a\n", stderr);
        return 2;
    }
    zav::setDiagnosticsHandler([](std::string_view) {});
    try {
        record(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
}
