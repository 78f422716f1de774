// The sound server's device on private servers of both kinds. These tests cover what the contract
// of audio queues leaves out: formats, the device thread's allocations, queues without moving
// audio, and the user's settings.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/queues/QueueDevice.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/PcmFileCases.hpp"
#include "tests/support/QueueUnderTest.hpp"
#include "tests/support/Ramp.hpp"
#include "tests/support/RealTimeProbe.hpp"
#include "tests/support/SoundServer.hpp"
#include "tests/support/SpeakerRecorder.hpp"
#include "tests/support/TestAudio.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {

using namespace detail;

namespace {

using namespace std::chrono_literals;

const AudioStreamBasicDescription kStereo = pcmFormat(48000, 2);
const AudioStreamBasicDescription kMono = pcmFormat(48000, 1);

const std::thread::id kTestThread = std::this_thread::get_id();

/// Plays silence. From its first call on the device thread, the allocations of that thread count.
class SilentClient final : public PlaybackClient {
 public:
    std::size_t pull(std::span<std::byte> room) noexcept override {
        std::ranges::fill(room, std::byte{0});
        if (std::this_thread::get_id() != kTestThread) {
            RealTimeProbe::watchThisThread();
            isWatching = true;
        }
        return room.size();
    }
    std::uint64_t mark() const noexcept override { return kNoMark; }
    void played(std::uint64_t /*frameCount*/) noexcept override {}
    void ranDry(std::uint64_t /*frameCount*/) noexcept override {}
    void deviceGone() noexcept override {}

    std::atomic<bool> isWatching = false;
};

class PulseDevice : public testing::TestWithParam<const char*> {
 protected:
    /// Counts allocations from here on. All streams share the device thread, so one beside the
    /// tested ones is enough.
    void watchDeviceThread() {
        EXPECT_EQ(queueDevice()->openPlayback(kStereo, silence_, beside_), noErr);
        EXPECT_EQ(beside_->start(), noErr);
        EXPECT_TRUE(waitFor([&] { return silence_.isWatching.load(); }));
        RealTimeProbe::reset();
    }

    const bool isPipeWire_ = GetParam() == std::string("pipewire");
    SoundServer server_{GetParam()};

 private:
    SilentClient silence_;
    std::unique_ptr<PlaybackStream> beside_;
};

/// Returns a queue that has played these samples. It has stopped if `isDrained`, and has run dry
/// otherwise.
template <class Sample>
std::unique_ptr<OutputUnderTest> play(const AudioStreamBasicDescription& format,
                                      const std::vector<Sample>& samples, bool isDrained) {
    auto queue = std::make_unique<OutputUnderTest>(format);
    queue->enqueue(samples);
    EXPECT_EQ(queue->start(), noErr);
    if (isDrained) {
        EXPECT_EQ(queue->stop(false), noErr);
    }
    EXPECT_TRUE(
        waitFor([&] { return queue->returnCount() == 1 && queue->isRunning() != isDrained; }));
    return queue;
}

TEST_P(PulseDevice, playsTheShortestStreamsToTheEnd) {
    SpeakerRecorder recorder;
    std::vector<std::int16_t> expected;
    for (const bool isDrained : {true, false}) {
        for (const std::size_t frames : {1U, 100U, 4'000U}) {
            const auto samples = rampSamples(2 * frames);
            play(kStereo, samples, isDrained);
            expected.insert(expected.end(), samples.begin(), samples.end());
        }
    }
    EXPECT_EQ(recorder.waitForSamples(expected.size()), expected);
}

TEST_P(PulseDevice, givesBuffersBackWhenTheyHaveSoundedWithoutAllocating) {
    using Clock = std::chrono::steady_clock;
    OutputUnderTest queue(kStereo);
    queue.enqueueNew(30, 2'400 * 4);
    std::atomic<double> mostAhead = -1;
    Clock::time_point started;
    queue.onReturn = [&, sounded = 0.0](AudioQueueBufferRef) mutable {
        const std::chrono::duration<double> since = Clock::now() - started;
        mostAhead = std::max(mostAhead.load(), (sounded += 0.05) - since.count());
    };
    watchDeviceThread();
    started = Clock::now();
    EXPECT_EQ(queue.start(), noErr);
    EXPECT_EQ(queue.stop(false), noErr);
    EXPECT_EQ(queue.start(), noErr);  // calls the stop off
    EXPECT_EQ(queue.stop(false), noErr);
    EXPECT_TRUE(waitFor([&] { return queue.returnCount() == 30; }));
    // PipeWire's null sink plays a block of 2048 frames as soon as it has taken it.
    EXPECT_LT(mostAhead, 0.06);
    EXPECT_EQ(RealTimeProbe::allocationCount(), 0);
}

TEST_P(PulseDevice, playsEveryEncodingAsFfmpegDecodesIt) {
    const TemporaryFolder folder;
    SpeakerRecorder recorder;
    std::size_t heardCount = 0;
    writeFile(folder / "samples", testBytes(800));
    const auto convert = [&](const std::string& from, const std::string& name,
                             const std::string& to) {
        return bytesOutputOf("ffmpeg -nostdin -v error -ar 48000 -ac 1 -f " + from + " -i " +
                             quoted(folder / name) + " -f " + to + " -");
    };
    for (const Encoding& encoding : allEncodings()) {
        SCOPED_TRACE(encoding.name);
        const std::string type = encoding.name == "ulaw" ? "mulaw" : encoding.name;
        const auto bytes = convert("s16le", "samples", type);
        writeFile(folder / "bytes", bytes);
        const auto wanted = withoutSilence(samplesOf(convert(type, "bytes", "s16le")));
        EXPECT_GE(wanted.size(), 390U);
        // Silence follows, whether the stream is drained or runs dry.
        for (const bool isDrained : {true, false}) {
            const auto queue = play(encoding.format(48000, 1), bytes, isDrained);
            const auto heard = recorder.waitForSamples(heardCount + 2 * wanted.size());
            ASSERT_EQ(heard.size(), heardCount + 2 * wanted.size());
            for (std::size_t i = 0; i < 2 * wanted.size(); ++i) {
                ASSERT_EQ(heard[heardCount + i], wanted[i / 2]) << i;
            }
            heardCount = heard.size();
        }
    }
}

TEST_P(PulseDevice, opensStreamsUpToTheLimitsOfItsFormats) {
    for (const auto& format : {pcmFormat(8000, 8), pcmFormat(192000, 3), pcmFormat(44100, 7)}) {
        EXPECT_EQ(OutputUnderTest(format).start(), noErr);
        EXPECT_EQ(InputUnderTest(format).start(), noErr);
    }
}

TEST_P(PulseDevice, capturesEverySampleOnceAlsoWhenItHasToWait) {
    const TemporaryFolder folder;
    const auto ramp = rampSamples(30'000);
    writeFile(folder / "ramp.raw", std::as_bytes(std::span(ramp)));
    InputUnderTest queue(kMono);
    watchDeviceThread();
    EXPECT_EQ(queue.start(), noErr);
    EXPECT_TRUE(waitFor([&] { return queue.interruptionCount() > 0; }));
    outputOf("paplay --device=mic --raw --format=s16le --rate=48000 --channels=1 " +
             (folder / "ramp.raw").string());
    // The whole ramp has waited in the device. Buffers of 997 frames differ from the server's
    // pieces.
    EXPECT_TRUE(waitFor([&] {
        queue.enqueueNew(1, 2 * 997);
        return queue.capturedWithoutSilence().size() >= ramp.size();
    }));
    EXPECT_EQ(queue.capturedWithoutSilence(), ramp);
    EXPECT_EQ(RealTimeProbe::allocationCount(), 0);
}

// The contract covers queues whose audio moves when the server goes.
TEST_P(PulseDevice, noticesThatItsServerIsGoneWhileNoAudioMoves) {
    OutputUnderTest starved(kStereo);
    InputUnderTest full(kMono);
    starved.enqueueNew(1, 400);
    EXPECT_EQ(full.start(), noErr);
    EXPECT_EQ(starved.start(), noErr);
    EXPECT_TRUE(
        waitFor([&] { return starved.interruptionCount() > 0 && full.interruptionCount() > 0; }));
    server_.signal(SIGKILL);
    EXPECT_TRUE(waitFor([&] { return !starved.isRunning() && !full.isRunning(); }));
    // A server that is not there is reported at once. Only one that does not answer is waited for.
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(starved.start(), kAudioQueueErr_InvalidDevice);
    EXPECT_EQ(full.start(), kAudioQueueErr_InvalidDevice);
    AudioDeviceList list;
    EXPECT_EQ(listAudioDevices(list), kAudioQueueErr_InvalidDevice);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
}

TEST_P(PulseDevice, playsOnAfterTheUserMovesItsStream) {
    OutputUnderTest queue(kStereo);
    queue.enqueueNew(1, 60 * 48'000 * 4);
    EXPECT_EQ(queue.start(), noErr);
    EXPECT_TRUE(waitFor([&] { return queue.currentFrame() > 4'800; }));
    outputOf("pactl move-sink-input $(pactl list short sink-inputs | cut -f1) mic");
    const double then = queue.currentFrame();
    EXPECT_TRUE(waitFor([&] { return queue.currentFrame() > then + 24'000; }));
    EXPECT_TRUE(queue.isRunning());
}

TEST_P(PulseDevice, listsTheDevicesOfItsServer) {
    AudioDeviceList list;
    ASSERT_EQ(listAudioDevices(list), noErr);
    EXPECT_NE(list.server.find(isPipeWire_ ? "PipeWire 0." : "audio 1"), std::string::npos)
        << list.server;
    ASSERT_EQ(list.devices.size(), 4U);
    for (const AudioDeviceInfo& device : list.devices) {
        const bool isMonitor = device.name.ends_with(".monitor");
        EXPECT_EQ(device.isInput, isMonitor) << device.name;
        EXPECT_EQ(device.isMonitor, isMonitor) << device.name;
        EXPECT_EQ(device.channelCount, device.name.starts_with("mic") ? 1U : 2U) << device.name;
        EXPECT_EQ(device.sampleRate, 48000) << device.name;
        EXPECT_NE(device.description, "");
    }
}

/// The names of the devices that are marked as used.
std::string usedDevices() {
    AudioDeviceList list;
    EXPECT_EQ(listAudioDevices(list), noErr);
    std::string names;
    for (const AudioDeviceInfo& device : list.devices) {
        names += device.isUsed ? device.name + " " : "";
    }
    return names;
}

TEST_P(PulseDevice, marksTheDevicesThatQueuesOpen) {
    EXPECT_EQ(usedDevices(), "speaker mic.monitor ");
    // libpulse's own settings come first, and the environment overrides them.
    std::ofstream(std::getenv("PULSE_CLIENTCONFIG"))
        << "default-sink = mic\ndefault-source = speaker.monitor\n";
    EXPECT_EQ(usedDevices(), "mic speaker.monitor ");
    std::ofstream(std::getenv("PULSE_CLIENTCONFIG")) << "";
    EXPECT_EQ(usedDevices(), "speaker mic.monitor ");
    ::setenv("PULSE_SINK", "mic", 1);
    ::setenv("PULSE_SOURCE", "speaker.monitor", 1);
    EXPECT_EQ(usedDevices(), "mic speaker.monitor ");
    OutputUnderTest queue(kStereo);
    queue.enqueueNew(1, 60 * 48'000 * 4);
    EXPECT_EQ(queue.start(), noErr);
    EXPECT_EQ(outputOf("pactl list sinks | grep -A1 RUNNING | grep -c 'Name: mic' || true"), "1\n");
    // PipeWire replaces a sink that does not exist by its default.
    ::setenv("PULSE_SINK", "none", 1);
    EXPECT_EQ(usedDevices(), isPipeWire_ ? "speaker speaker.monitor " : "speaker.monitor ");
}

INSTANTIATE_TEST_SUITE_P(On, PulseDevice, testing::Values("pulseaudio", "pipewire"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace zav::test
