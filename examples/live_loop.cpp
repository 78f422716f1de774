// The microphone goes to an accessory as SBC, and what comes back goes to the loudspeaker, both at
// once, until Ctrl-C:
//
//     RecordSource -> FrameAligner -> SBCEncoder -> ToAccessory  ~~> accessory, another process
//     PlaybackSink <- SBCDecoder <- PeripheralSource             <~~
//
//     accessory /tmp/accessory &
//     live_loop [--restart] /tmp/accessory
//     live_loop --server
//
// Three threads drive it, one for each part that may wait: the audio queue's own pushes what was
// captured, one of ours what came back, and the main thread looks after both. With --restart it
// begins anew whenever the sound server has gone away. --server only tells which one there is.

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <ZAVAudioStreaming/platform/AudioDevices.hpp>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <future>
#include <span>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Audio that gathers before playing starts: how late a frame may come without being missed.
constexpr double kPlaybackDelayInSeconds = 0.12;
/// Frames go to the queue at half of this, 16 ms. A buffer of the usual half second would hold back
/// the first quarter of a second.
constexpr std::uint32_t kPlaybackBufferSizeInBytes = 1024;

constexpr zav::AudioStreamBasicDescription kPcm{
    .mSampleRate = 16000,
    .mFormatID = zav::kAudioFormatLinearPCM,
    .mFormatFlags = zav::kAudioFormatFlagIsSignedInteger | zav::kAudioFormatFlagIsPacked,
    .mBytesPerPacket = 2,
    .mFramesPerPacket = 1,
    .mBytesPerFrame = 2,
    .mChannelsPerFrame = 1,
    .mBitsPerChannel = 16};

/// The way to the accessory and back: a Unix socket that keeps packets apart.
class Connection {
 public:
    explicit Connection(std::string_view path)
        : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        if (path.size() >= sizeof(address.sun_path)) {
            throw std::length_error("the path is too long for a socket");
        }
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        if (socket_ < 0 ||
            ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            const int error = errno;
            ::close(socket_);
            throw std::system_error(error, std::generic_category(), "accessory");
        }
    }
    ~Connection() { ::close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Does not wait: false when there is no room, or nobody at the other end.
    bool send(std::span<const std::byte> packet) const {
        return ::send(socket_, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0;
    }
    /// Waits for a packet; its size, or 0 at the end.
    std::size_t receive(std::span<std::byte> room) const {
        const ssize_t size = ::recv(socket_, room.data(), room.size(), 0);
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    /// No more is sent; what is on its way still comes back.
    void endSending() const { ::shutdown(socket_, SHUT_WR); }
    void end() const { ::shutdown(socket_, SHUT_RDWR); }

 private:
    const int socket_;
};

/// Sends every SBC frame as a packet. What the link cannot take is lost, as it would be on the air:
/// the audio queue's thread, which calls this, must not be held up.
class ToAccessory : public zav::PeripheralSink {
 public:
    ToAccessory(zav::NodeKey key, const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                std::shared_ptr<Connection> connection)
        : PeripheralSink(key, upstream), connection_(std::move(connection)) {}

    void receiveAudio(const void* bytes, std::uint64_t size, std::uint64_t packetNum,
                      const zav::AudioStreamPacketDescription*) override {
        const std::span frames(static_cast<const std::byte*>(bytes), size);
        for (std::uint64_t i = 0; i < packetNum; ++i) {
            const std::size_t frameSize = size / packetNum;
            ++(connection_->send(frames.subspan(i * frameSize, frameSize)) ? sentCount : lostCount);
        }
    }

    std::atomic<std::uint64_t> sentCount = 0;
    std::atomic<std::uint64_t> lostCount = 0;

 private:
    const std::shared_ptr<Connection> connection_;
};

double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

std::uint32_t interruptionCount(zav::AudioQueueRef queue) {
    std::uint32_t count = 0;
    std::uint32_t size = sizeof(count);
    if (const zav::OSStatus status = zav::AudioQueueGetProperty(
            queue, zav::kAudioQueueProperty_InterruptionCount, &count, &size);
        status != zav::noErr) {
        throw zav::AudioQueueError::failure(status);
    }
    return count;
}

/// Both graphs, for as long as the sound server lives.
class LiveLoop {
 public:
    explicit LiveLoop(const char* accessoryPath)
        : connection_(std::make_shared<Connection>(accessoryPath)) {
        const auto configuration = std::make_shared<zav::SBCCoding::SBCConfiguration>();
        const auto aligner = zav::makeNode<zav::FrameAligner>(
            source_, zav::FrameAligner::bytesPerSbcFrame(*configuration));
        const auto encoder = zav::makeNode<zav::SBCEncoder>(aligner, configuration);
        toAccessory_ = zav::makeNode<ToAccessory>(encoder, connection_);

        fromAccessory_->setOutDataFormat(encoder->outDataFormat());
        const auto decoder = zav::makeNode<zav::SBCDecoder>(fromAccessory_);
        sink_ = zav::makeNode<zav::PlaybackSink>(decoder);
        sink_->setQueueBufferSize(kPlaybackBufferSizeInBytes);
        sink_->autoPlay(kPlaybackDelayInSeconds);
    }
    ~LiveLoop() { connection_->end(); }
    LiveLoop(const LiveLoop&) = delete;
    LiveLoop& operator=(const LiveLoop&) = delete;

    void start() {
        source_->record();
        receiver_ = std::jthread([this] { playWhatComesBack(); });
    }

    /// Whether audio can flow: it is recorded, the accessory is there, and it is played once there
    /// is enough.
    bool isWhole() const {
        const bool waitsToPlay = sink_->delayPlaySchedule().has_value();
        return source_->isRecording() && isConnected_ && (waitsToPlay || sink_->isPlaying());
    }

    /// Ends the recording and waits until all that was captured has been heard.
    void finish() {
        seconds_ = Clock::now() - start_;
        processorSeconds_ = processorSeconds() - processorSecondsAtStart_;
        recordInterruptions_ = interruptionCount(source_->audioQueueRef());
        playInterruptions_ = interruptionCount(sink_->audioQueueRef());
        const auto ended = std::make_shared<std::promise<void>>();
        source_->stop([ended] { ended->set_value(); });
        ended->get_future().wait();
        connection_->endSending();
        receiver_.join();
        while (sink_->isPlaying()) {
            std::this_thread::sleep_for(10ms);
        }
    }

    void printFigures() const {
        std::printf("packets            %llu SBC frames went to the accessory, %llu came back\n",
                    static_cast<unsigned long long>(toAccessory_->sentCount),
                    static_cast<unsigned long long>(returnedCount_));
        std::printf("lost               %llu for which the link had no room\n",
                    static_cast<unsigned long long>(toAccessory_->lostCount));
        std::printf("underruns          %u of the loudspeaker, %u of the microphone\n",
                    playInterruptions_, recordInterruptions_);
        std::printf("processor          %.2f %% of one, over %.1f s\n",
                    100 * processorSeconds_ / seconds_.count(), seconds_.count());
    }

 private:
    void playWhatComesBack() {
        std::array<std::byte, 512> packet{};
        const std::size_t frameSize = fromAccessory_->outDataFormat().mBytesPerPacket;
        fromAccessory_->downstreams().onAudioStreamFlowStart();
        while (const std::size_t size = connection_->receive(packet)) {
            if (size == frameSize) {  // the decoder stops the process at anything else
                ++returnedCount_;
                fromAccessory_->downstreams().receiveAudio(packet.data(), size, 1, nullptr);
            }
        }
        isConnected_ = false;
        fromAccessory_->downstreams().onAudioStreamFlowEnd();
    }

    const Clock::time_point start_ = Clock::now();
    const double processorSecondsAtStart_ = processorSeconds();
    std::chrono::duration<double> seconds_{};
    double processorSeconds_ = 0;
    std::uint32_t recordInterruptions_ = 0;
    std::uint32_t playInterruptions_ = 0;
    std::uint64_t returnedCount_ = 0;
    std::atomic<bool> isConnected_ = true;

    std::shared_ptr<Connection> connection_;
    std::shared_ptr<zav::RecordSource> source_ = zav::makeNode<zav::RecordSource>(kPcm);
    std::shared_ptr<ToAccessory> toAccessory_;
    std::shared_ptr<zav::PeripheralSource> fromAccessory_ = zav::makeNode<zav::PeripheralSource>();
    std::shared_ptr<zav::PlaybackSink> sink_;
    std::jthread receiver_;  // last, so that it ends first
};

/// Ctrl-C and its like, taken when this is ready for them.
class EndSignals {
 public:
    /// To be made before there are other threads, which inherit that they leave them alone.
    EndSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }
    /// Whether one comes within this time.
    bool comeWithin(std::chrono::nanoseconds time) const {
        const timespec limit{0, static_cast<long>(time.count())};
        return ::sigtimedwait(&signals_, nullptr, &limit) > 0;
    }

 private:
    sigset_t signals_{};
};

/// Runs until a signal comes (true) or something is lost (false).
bool runOnce(const char* accessoryPath, const EndSignals& signals) {
    LiveLoop loop(accessoryPath);
    loop.start();
    std::puts("recording");
    std::fflush(stdout);
    bool isToEnd = false;
    while (!isToEnd && loop.isWhole()) {
        isToEnd = signals.comeWithin(50ms);
    }
    loop.finish();
    loop.printFigures();
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
        std::puts("interrupted");
        std::fflush(stdout);
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
    std::puts(list.server.c_str());
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
