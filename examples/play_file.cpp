// Plays a file of PCM or MP3:
//
//     FileSource -> PlaybackSink
//
//     play_file speech.wav
//
// The program reads the file as fast as the sink plays: one buffer whenever the sink has played
// one.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <chrono>
#include <cstdio>
#include <semaphore>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBuffersAhead = 3;  // a buffer holds half a second by default
constexpr auto kLost = "the sound server went away";

void play(const char* path) {
    const auto source = zav::makeNode<zav::FileSource>(path);
    // A file source does not describe packets. Without descriptions, the queue can separate packets
    // of varying size only for MP3.
    const zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (format.mBytesPerPacket == 0 && format.mFormatID != zav::kAudioFormatMPEGLayer3) {
        throw std::runtime_error("neither PCM nor MP3, which is what this example plays");
    }
    const auto sink = zav::makeNode<zav::PlaybackSink>(source);

    // A thread of the dispatch queue calls the handler, perhaps once more after this function has
    // returned. The handler only wakes this thread, because only one thread may drive the graph.
    const auto played = std::make_shared<std::counting_semaphore<>>(0);
    sink->setAudioDataAcquireHandler([played] { played->release(); });
    sink->play();

    const std::int64_t packetsPerRead = sink->maxPacketNumForBuffer();
    while (source->readPackets(packetsPerRead) > 0) {
        while (sink->allocatedBufferCount() - sink->idleBufferCount() >= kBuffersAhead) {
            if (!played->try_acquire_for(1s) && !sink->isPlaying()) {
                throw std::runtime_error(kLost);
            }
        }
    }
    while (sink->isPlaying()) {  // until the queued audio has been played
        std::this_thread::sleep_for(20ms);
    }
    if (!sink->hasPlayedAll()) {
        throw std::runtime_error(kLost);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: play_file FILE\n", stderr);
        return 2;
    }
    zav::setDiagnosticsHandler([](std::string_view) {});
    try {
        play(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
        return 1;
    }
}
