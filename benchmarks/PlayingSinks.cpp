// Plays silence with one PlaybackSink and then with 32 at the same time, and prints the memory of
// each of the 31 added sinks, including its connection to the sound server. This is a program of
// its own, because a process does not return memory to the system.
//
//     zav_playing_sinks

#include <malloc.h>
#include <unistd.h>

#include <ZAVAudioStreaming/core/Diagnostics.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/sinks/PlaybackSink.hpp>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <semaphore>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// PulseAudio mixes at most 32 streams.
constexpr int kMoreSinks = 31;

/// Each sink releases this semaphore once, when the sink has played its first buffer.
std::counting_semaphore<> hasPlayed(0);

void pushHalfSecond(zav::PeripheralSource& source) {
    static const std::vector<std::byte> silence(std::size_t{24000} * 4);
    source.downstreams().receiveAudio(silence.data(), silence.size(), silence.size() / 4, nullptr);
}

/// Returns a source with a playing sink. The sink's queue holds one second of audio all the time.
std::shared_ptr<zav::PeripheralSource> playSilence() {
    auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(zav::linearPcm(48000, 2));
    const auto sink = zav::makeNode<zav::PlaybackSink>(source);
    sink->setAudioDataAcquireHandler(
        [weakSource = std::weak_ptr(source), isFirst = true]() mutable {
            if (const auto pushed = weakSource.lock()) {
                pushHalfSecond(*pushed);
                if (std::exchange(isFirst, false)) {
                    hasPlayed.release();
                }
            }
        });
    pushHalfSecond(*source);
    pushHalfSecond(*source);
    sink->play();
    return source;
}

/// In kB (1000 bytes).
struct Memory {
    double resident;
    double allocated;
};

Memory memory() {
    long pageCount = 0;
    std::ifstream("/proc/self/statm").ignore(32, ' ') >> pageCount;
    const auto heap = ::mallinfo2();
    return {static_cast<double>(pageCount) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e3,
            static_cast<double>(heap.uordblks + heap.hblkhd) / 1e3};
}

void play() {
    std::vector<std::shared_ptr<zav::PeripheralSource>> playing{playSilence()};
    hasPlayed.acquire();
    const Memory ofOne = memory();
    for (int i = 0; i < kMoreSinks; ++i) {
        playing.push_back(playSilence());
    }
    for (int i = 0; i < kMoreSinks; ++i) {
        hasPlayed.acquire();
    }
    const Memory ofAll = memory();
    std::printf("resident %.0f kB, allocated %.0f kB, of which %d kB are a second of audio\n",
                (ofAll.resident - ofOne.resident) / kMoreSinks,
                (ofAll.allocated - ofOne.allocated) / kMoreSinks, 48000 * 4 / 1000);
}

}  // namespace

int main() {
    try {
        zav::setDiagnosticsHandler([](std::string_view /*line*/) {});
        play();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zav_playing_sinks: %s\n", error.what());
        return 1;
    }
    return 0;
}
