// Sends the microphone's audio to an accessory as SBC, and plays the returning audio at the same
// time, until Ctrl-C:
//
//     RecordSource -> FrameAligner -> SBCEncoder -> ToAccessory  ~~> accessory, another process
//     PlaybackSink <- SBCDecoder <- PeripheralSource             <~~
//
//     accessory /tmp/accessory &
//     live_loop [--restart] /tmp/accessory
//     live_loop --server
//
// `LiveLoop` contains the graphs. With --restart the program makes a new `LiveLoop` whenever the
// sound server has gone away, because a source records only once. --server only prints the sound
// server's name.

#include <sys/resource.h>

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <ZAVAudioStreaming/platform/AudioDevices.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "LiveLoop.hpp"

namespace {

using namespace std::chrono_literals;

/// Keeps SIGINT and SIGTERM pending until `comeWithin` is called.
class EndSignals {
 public:
    /// Construct it before other threads start: threads inherit the blocked signals.
    EndSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }
    /// Whether a signal comes within this time.
    bool comeWithin(std::chrono::nanoseconds time) const {
        const timespec limit{0, static_cast<long>(time.count())};
        return ::sigtimedwait(&signals_, nullptr, &limit) > 0;
    }

 private:
    sigset_t signals_{};
};

double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void print(const LiveLoop::Figures& figures) {
    std::cout << "packets            " << figures.sentCount << " SBC frames went to the accessory, "
              << figures.returnedCount << " came back\n"
              << "lost               " << figures.lostCount << " for which the link had no room\n"
              << "underruns          " << figures.playInterruptions << " of the loudspeaker, "
              << figures.recordInterruptions << " of the microphone\n"
              << std::flush;
}

/// Returns true after a signal, and false if the sound server or the accessory went away.
bool runOnce(const char* accessoryPath, const EndSignals& signals) {
    LiveLoop loop(accessoryPath);
    loop.start();
    std::cout << "recording\n" << std::flush;
    const auto start = std::chrono::steady_clock::now();
    const double processorAtStart = processorSeconds();
    bool isToEnd = false;
    while (!isToEnd && loop.isWhole()) {
        isToEnd = signals.comeWithin(50ms);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const double processor = processorSeconds() - processorAtStart;
    print(loop.finish());
    std::printf("processor          %.2f %% of one, over %.1f s\n",
                100 * processor / seconds.count(), seconds.count());
    return isToEnd;
}

void run(const char* accessoryPath, bool isToRestart) {
    const EndSignals signals;
    for (;;) {
        try {
            if (runOnce(accessoryPath, signals)) {
                return;
            }
            if (!isToRestart) {
                throw std::runtime_error("the sound server or the accessory went away");
            }
        } catch (const zav::AudioQueueError&) {
            if (!isToRestart) {
                throw;
            }
        }
        std::cout << "interrupted\n" << std::flush;
        if (signals.comeWithin(200ms)) {
            return;
        }
    }
}

void printServer() {
    zav::AudioDeviceList list;
    if (const zav::OSStatus status = zav::listAudioDevices(list); status != zav::noErr) {
        throw zav::AudioQueueError::failure(status);
    }
    std::cout << list.server << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    const bool isToRestart = option == "--restart";
    if (argc != (isToRestart ? 3 : 2)) {
        std::fputs("usage: live_loop [--restart] SOCKET\n       live_loop --server\n", stderr);
        return 2;
    }
    zav::setDiagnosticsHandler([](std::string_view) {});
    try {
        if (option == "--server") {
            printServer();
        } else {
            run(argv[argc - 1], isToRestart);
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "live_loop: %s\n", error.what());
        return 1;
    }
}
