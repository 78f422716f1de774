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
using Configuration = zav::SBCCoding::SBCConfiguration;

constexpr double kRateInHz = 16000;
constexpr std::uint32_t kBytesPerBuffer = 3200;  // a tenth of a second
constexpr std::size_t kBuffersAhead = 5;
constexpr auto kOtherFrames = "the first frame is not SBC of 16 kHz, mono, bitpool 32";
constexpr auto kLost = "there is no sound server, or it went away";

bool readFrame(std::vector<std::byte>& frame) {
    return std::fread(frame.data(), frame.size(), 1, stdin) == 1;
}

/// The decoder ends the process at a frame with other parameters, so check the first frame.
bool hasParameters(const std::vector<std::byte>& frame, const Configuration& wanted) {
    const auto sent = Configuration::fromFrame(frame.data(), frame.size());
    return sent != nullptr && sent->freq == wanted.freq && sent->mode == wanted.mode &&
           sent->frameLen() == frame.size();
}

void play() {
    const Configuration configuration;
    const auto format = zav::sbcFormat(configuration, kRateInHz, 1);
    std::vector<std::byte> frame(format.mBytesPerPacket);
    bool hasFrame = readFrame(frame);
    if (!hasFrame || !hasParameters(frame, configuration)) {
        throw std::runtime_error(kOtherFrames);
    }

    const auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(format);
    const auto decoder = zav::makeNode<zav::SBCDecoder>(source);
    const auto sink = zav::makeNode<zav::PlaybackSink>(decoder);
    sink->setQueueBufferSize(kBytesPerBuffer);

    // A thread of the dispatch queue calls the handler, perhaps once more after this function has
    // returned. The handler only wakes this thread, because only one thread may drive the graph.
    const auto played = std::make_shared<std::counting_semaphore<>>(0);
    sink->setAudioDataAcquireHandler([played] { played->release(); });
    sink->autoPlay(0.2);

    source->downstreams().onAudioStreamFlowStart();
    for (; hasFrame; hasFrame = readFrame(frame)) {
        while (sink->allocatedBufferCount() - sink->idleBufferCount() >= kBuffersAhead) {
            if (!played->try_acquire_for(1s) && !sink->isPlaying()) {
                throw std::runtime_error(kLost);
            }
        }
        source->downstreams().receiveAudio(frame.data(), frame.size(), 1, nullptr);
    }
    source->downstreams().onAudioStreamFlowEnd();
    while (sink->isPlaying()) {  // until the queued audio has been played
        std::this_thread::sleep_for(20ms);
    }
    if (!sink->hasPlayedAll()) {  // also false if the sink could not start
        throw std::runtime_error(kLost);
    }
    if (std::ferror(stdin) != 0) {
        throw std::runtime_error("the accessory cannot be read");
    }
}

}  // namespace

int main(int argc, char**) {
    if (argc != 1) {
        std::fputs("usage: accessory_to_loudspeaker <FRAMES.sbc\n", stderr);
        return 2;
    }
    zav::setDiagnosticsHandler([](std::string_view) {});
    try {
        play();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "accessory_to_loudspeaker: %s\n", error.what());
        return 1;
    }
}
