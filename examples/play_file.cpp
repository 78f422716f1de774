// Plays a file of PCM or MP3:
//
//     FileSource -> PlaybackSink
//
//     play_file speech.wav
//
// The program reads the file as fast as it is played: a buffer whenever the sink has played one.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <chrono>
#include <cstdio>
#include <semaphore>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBuffersAhead = 3;  // of half a second, unless a size is set
constexpr auto kLost = "the sound server went away";

void play(const char* path) {
    const auto source = zav::makeNode<zav::FileSource>(path);
    // A file source describes no packets. Of packets of varying size, the queue finds only those of
    // MP3 by itself.
    const zav::AudioStreamBasicDescription format = source->outDataFormat();
    if (format.mBytesPerPacket == 0 && format.mFormatID != zav::kAudioFormatMPEGLayer3) {
        throw std::runtime_error("neither PCM nor MP3, which is what this example plays");
    }
    const auto sink = zav::makeNode<zav::PlaybackSink>(source);

    // Called on a thread of the dispatch queue, perhaps once more after this function has returned.
    // It only wakes this thread, because one thread alone may drive the graph.
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
    while (sink->isPlaying()) {  // what is still queued
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
