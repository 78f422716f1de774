// Sends the microphone's audio to an accessory as SBC frames:
//
//     RecordSource -> FrameAligner -> SBCEncoder -> ToAccessory, a sink of the application
//
//     capture_to_accessory SECONDS >frames.sbc
//
// Standard output stands for the link to the accessory.

#include <unistd.h>

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <system_error>
#include <thread>

namespace {

/// Writes every chunk of SBC frames. The audio queue's thread calls this class, so it must not
/// throw. The main thread checks for an error.
class ToAccessory : public zav::PeripheralSink {
 public:
    using PeripheralSink::PeripheralSink;

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t,
                      const zav::AudioStreamPacketDescription*) override {
        const auto* rest = static_cast<const std::byte*>(bytes);
        while (size > 0 && error_ == 0) {
            const ssize_t written = ::write(STDOUT_FILENO, rest, size);
            if (written >= 0) {
                rest += written;
                size -= static_cast<std::uint64_t>(written);
            } else if (errno != EINTR) {
                error_ = errno;
            }
        }
    }

    int error() const { return error_; }

 private:
    std::atomic<int> error_ = 0;
};

void capture(double seconds) {
    const auto source = zav::makeNode<zav::RecordSource>(zav::linearPcm(16000, 1));
    const auto configuration = std::make_shared<zav::SBCCoding::SBCConfiguration>();
    // The encoder alone would repeat some audio with every half-second buffer: see `FrameAligner`.
    const auto aligner = zav::makeNode<zav::FrameAligner>(
        source, zav::FrameAligner::bytesPerSbcFrame(*configuration));
    const auto encoder = zav::makeNode<zav::SBCEncoder>(aligner, configuration);
    const auto accessory = zav::makeNode<ToAccessory>(encoder);

    source->record();
    while (source->isRecording() && accessory->error() == 0 && source->timeStamp() < seconds) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const bool isLost = !source->isRecording();
    // The stop hands over the last audio. Then the completion runs, on the queue's thread.
    const auto ended = std::make_shared<std::promise<void>>();
    source->stop([ended] { ended->set_value(); });
    ended->get_future().wait();
    if (accessory->error() != 0) {
        throw std::system_error(accessory->error(), std::generic_category(), "accessory");
    }
    if (isLost) {
        throw std::runtime_error("the sound server is gone");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc == 2 ? std::strtod(argv[1], nullptr) : 0;  // 0: not a number
    if (!(seconds > 0)) {
        std::fputs("usage: capture_to_accessory SECONDS >FRAMES.sbc\n", stderr);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);                        // lets the write to a lost accessory fail
    zav::setDiagnosticsHandler([](std::string_view) {});  // keeps these lines out of the frames
    try {
        capture(seconds);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "capture_to_accessory: %s\n", error.what());
        return 1;
    }
}
