// Plays what an accessory sends as SBC frames:
//
//     PeripheralSource -> SBCDecoder -> PlaybackSink
//
//     accessory_to_loudspeaker <frames.sbc
//
// Standard input stands for the link from the accessory, which sends frames with SBC's usual
// parameters at 16 kHz, mono. The sink starts to play when a fifth of a second is queued. The
// program reads at most half a second ahead: the sink calls its handler after each buffer that it
// has played.

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <chrono>
#include <cstdio>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr double kRateInHz = 16000;
constexpr std::uint32_t kBytesPerBuffer = 3200;  // a tenth of a second
constexpr std::size_t kBuffersAhead = 5;
constexpr auto kLost = "there is no sound server, or it went away";

void play() {
    const zav::SBCCoding::SBCConfiguration configuration;
    const auto format = zav::sbcFormat(configuration, kRateInHz, 1);
    const auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(format);
    const auto decoder = zav::makeNode<zav::SBCDecoder>(source);
    const auto sink = zav::makeNode<zav::PlaybackSink>(decoder);
    sink->setQueueBufferSize(kBytesPerBuffer);

    // Called on a thread of the dispatch queue, perhaps once more after this function has returned.
    // It only wakes this thread, because one thread alone may drive the graph.
    const auto played = std::make_shared<std::counting_semaphore<>>(0);
    sink->setAudioDataAcquireHandler([played] { played->release(); });
    sink->autoPlay(0.2);

    std::vector<std::byte> frame(format.mBytesPerPacket);
    source->downstreams().onAudioStreamFlowStart();
    while (std::fread(frame.data(), frame.size(), 1, stdin) == 1) {
        while (sink->allocatedBufferCount() - sink->idleBufferCount() >= kBuffersAhead) {
            if (!played->try_acquire_for(1s) && !sink->isPlaying()) {
                throw std::runtime_error(kLost);
            }
        }
        source->downstreams().receiveAudio(frame.data(), frame.size(), 1, nullptr);
    }
    source->downstreams().onAudioStreamFlowEnd();
    while (sink->isPlaying()) {  // what is still queued
        std::this_thread::sleep_for(20ms);
    }
    if (!sink->hasPlayedAll()) {  // false also if it could not start
        throw std::runtime_error(kLost);
    }
    if (std::ferror(stdin) != 0) {
        throw std::runtime_error("the accessory cannot be read");
    }
}

}  // namespace

int main() {
    zav::setDiagnosticsHandler([](std::string_view) {});
    try {
        play();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "accessory_to_loudspeaker: %s\n", error.what());
        return 1;
    }
}
