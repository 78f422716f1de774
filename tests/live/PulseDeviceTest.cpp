// The sound server device on private servers of both kinds: what is heard and captured, to the
// sample, and what happens when the server goes away.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

#include "ZAVAudioStreaming/platform/AudioDevices.hpp"
#include "ZAVAudioStreaming/platform/AudioQueue.hpp"
#include "tests/support/Commands.hpp"
#include "tests/support/DeviceClients.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RealTimeProbe.hpp"
#include "tests/support/SoundServer.hpp"
#include "tests/support/SpeakerRecorder.hpp"
#include "tests/support/WaitFor.hpp"

namespace zav::test {
namespace {

using namespace std::chrono_literals;

const AudioStreamBasicDescription kStereo = pcmFormat(48000, 2);
const AudioStreamBasicDescription kMono = pcmFormat(48000, 1);

std::unique_ptr<PlaybackStream> openPlayback(PlaybackClient& client) {
    std::unique_ptr<PlaybackStream> stream;
    EXPECT_EQ(audioDevice()->openPlayback(kStereo, client, stream), noErr);
    return stream;
}

std::unique_ptr<CaptureStream> openCapture(CaptureClient& client) {
    std::unique_ptr<CaptureStream> stream;
    EXPECT_EQ(audioDevice()->openCapture(kMono, client, stream), noErr);
    return stream;
}

/// Plays so many frames to the end, on a server that may have been started again.
void playsOn(std::uint64_t frameCount) {
    RampClient client(frameCount);
    const auto stream = openPlayback(client);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->start(), noErr);
    stream->drain();
    EXPECT_TRUE(waitFor([&] { return client.said == frameCount; })) << client.said;
}

class PulseDevice : public testing::TestWithParam<const char*> {
 protected:
    SoundServer server_{GetParam()};
};

TEST_P(PulseDevice, playsEveryFrameOnceAcrossPausesAndStarvation) {
    constexpr std::uint64_t kFrames = 40'000;
    SpeakerRecorder recorder;
    RampClient client(10'001);
    {
        const auto stream = openPlayback(client);
        EXPECT_EQ(client.pulled, 0U);
        EXPECT_EQ(stream->start(), noErr);
        EXPECT_GT(client.pulled, 0U);

        std::uint64_t last = 0;
        for (const std::uint64_t pauseAt : {1U, 3'000U, 6'000U}) {
            EXPECT_TRUE(waitFor([&] {
                const std::uint64_t now = stream->framesPlayed();
                EXPECT_GE(now, last);
                EXPECT_LE(now, client.pulled);
                last = now;
                return now >= pauseAt;
            }));
            EXPECT_EQ(stream->pause(), noErr);
            const std::uint64_t pausedAt = stream->framesPlayed();
            const std::uint64_t pulledAt = client.pulled;
            client.available += 100;
            stream->audioAdded();
            EXPECT_EQ(stream->framesPlayed(), pausedAt);
            EXPECT_EQ(client.pulled, pulledAt);
            EXPECT_EQ(stream->start(), noErr);
        }
        for (const std::uint64_t until : {20'000U, 20'050U, 30'000U}) {
            const int dryCount = client.dryCount;
            EXPECT_TRUE(waitFor([&] { return client.said == client.available; })) << client.said;
            EXPECT_TRUE(waitFor([&] { return client.dryCount > dryCount; }));
            EXPECT_EQ(stream->framesPlayed(), client.available);
            client.available = until;
            stream->audioAdded();
        }
        // Closed as soon as everything was said to have been played.
        client.available = kFrames;
        stream->audioAdded();
        stream->drain();
        EXPECT_TRUE(waitFor([&] { return client.said == kFrames; })) << client.said;
    }
    EXPECT_EQ(differenceFromRamp(recorder.waitForSamples(2 * kFrames), 2 * kFrames), "");
    EXPECT_TRUE(client.isInOrder);
    EXPECT_FALSE(client.isGone);
}

TEST_P(PulseDevice, playsTheShortestStreamsToTheEnd) {
    SpeakerRecorder recorder;
    std::vector<std::int16_t> expected;
    for (const bool isDrained : {true, false}) {
        for (const std::uint64_t frames : {1U, 100U, 4'000U}) {
            RampClient client(frames);
            const auto stream = openPlayback(client);
            EXPECT_EQ(stream->start(), noErr);
            if (isDrained) {
                stream->drain();
            }
            EXPECT_TRUE(waitFor([&] { return client.said == frames; })) << client.said;
            const auto samples = rampSamples(2 * frames);
            expected.insert(expected.end(), samples.begin(), samples.end());
        }
    }
    EXPECT_EQ(recorder.waitForSamples(expected.size()), expected);
}

TEST_P(PulseDevice, goesOnAfterADrainThatWasCalledOff) {
    SpeakerRecorder recorder;
    RampClient client(1'000);
    const auto stream = openPlayback(client);
    EXPECT_EQ(stream->start(), noErr);
    for (const std::uint64_t until : {5'001U, 5'500U, 16'000U}) {
        stream->drain();
        client.available = until;
        stream->audioAdded();
    }
    stream->drain();
    EXPECT_EQ(stream->start(), noErr);
    EXPECT_TRUE(waitFor([&] { return client.said == 16'000; })) << client.said;
    client.available = 17'000;
    stream->audioAdded();
    EXPECT_TRUE(waitFor([&] { return client.said == 17'000; })) << client.said;
    EXPECT_EQ(differenceFromRamp(recorder.waitForSamples(34'000), 34'000), "");
    EXPECT_TRUE(client.isInOrder);
}

/// Looks at the moments of what the device says, and at what it allocates.
class TimedClient final : public RampClient {
 public:
    using RampClient::RampClient;

    std::size_t pull(std::span<std::byte> room) noexcept override {
        if (std::this_thread::get_id() != testThread_) {
            RealTimeProbe::watchThisThread();
        }
        return RampClient::pull(room);
    }
    void played(std::uint64_t frameCount) noexcept override {
        const std::chrono::duration<double> since = std::chrono::steady_clock::now() - started;
        mostAheadSeconds =
            std::max(mostAheadSeconds.load(),
                     static_cast<double>(std::min<std::uint64_t>(frameCount, mark())) / 48000 -
                         since.count());
        ++saidCount;
        RampClient::played(frameCount);
    }

    std::chrono::steady_clock::time_point started;
    std::atomic<double> mostAheadSeconds = 0;
    std::atomic<int> saidCount = 0;

 private:
    const std::thread::id testThread_ = std::this_thread::get_id();
};

TEST_P(PulseDevice, saysWhenMarksAreReachedWithoutAllocating) {
    constexpr std::uint64_t kFrames = 72'000;
    TimedClient client(kFrames, 2'400);
    const auto stream = openPlayback(client);
    RealTimeProbe::reset();
    client.started = std::chrono::steady_clock::now();
    EXPECT_EQ(stream->start(), noErr);
    stream->drain();
    EXPECT_TRUE(waitFor([&] { return client.said == kFrames; })) << client.said;
    // For PipeWire's null sink a block is played as soon as it is taken: 2048 frames.
    EXPECT_LT(client.mostAheadSeconds, 0.06);
    // A machine that is busy may take several marks at once.
    EXPECT_GT(client.saidCount, 10);
    EXPECT_EQ(RealTimeProbe::allocationCount(), 0);
}

AudioStreamBasicDescription companded(std::uint32_t formatID) {
    AudioStreamBasicDescription format = pcmFormat(48000, 1, 8, 0);
    format.mFormatID = formatID;
    format.mFormatFlags = 0;
    return format;
}

/// Plays the same bytes again and again, in mono.
class RepeatingClient final : public RampClient {
 public:
    RepeatingClient(std::vector<unsigned char> repeated, std::size_t frameBytes,
                    std::uint64_t frameCount)
        : RampClient(frameCount), repeated_(std::move(repeated)), frameBytes_(frameBytes) {}

    std::size_t pull(std::span<std::byte> room) noexcept override {
        const std::uint64_t frames =
            std::min<std::uint64_t>(room.size() / frameBytes_, available - pulled);
        for (std::size_t i = 0; i < frames * frameBytes_; ++i) {
            room[i] =
                static_cast<std::byte>(repeated_[(pulled * frameBytes_ + i) % repeated_.size()]);
        }
        pulled += frames;
        return frames * frameBytes_;
    }

 private:
    const std::vector<unsigned char> repeated_;
    const std::size_t frameBytes_;
};

TEST_P(PulseDevice, takesTheFormatsThatQueuesAskFor) {
    struct Case {
        AudioStreamBasicDescription format;
        std::vector<unsigned char> sample;  ///< about a quarter of full scale
    };
    constexpr auto kSigned = kAudioFormatFlagIsSignedInteger;
    constexpr auto kFloat = kAudioFormatFlagIsFloat;
    constexpr auto kBig = kAudioFormatFlagIsBigEndian;
    const std::vector<Case> cases{
        {pcmFormat(48000, 1, 8, 0), {0xA0}},
        {pcmFormat(48000, 1, 16, kSigned), {0x00, 0x20}},
        {pcmFormat(48000, 1, 16, kSigned | kBig), {0x20, 0x00}},
        {pcmFormat(48000, 1, 24, kSigned), {0x00, 0x00, 0x20}},
        {pcmFormat(48000, 1, 24, kSigned | kBig), {0x20, 0x00, 0x00}},
        {pcmFormat(48000, 1, 32, kSigned), {0x00, 0x00, 0x00, 0x20}},
        {pcmFormat(48000, 1, 32, kSigned | kBig), {0x20, 0x00, 0x00, 0x00}},
        {pcmFormat(48000, 1, 32, kFloat), {0x00, 0x00, 0x80, 0x3E}},
        {pcmFormat(48000, 1, 32, kFloat | kBig), {0x3E, 0x80, 0x00, 0x00}},
        {companded(kAudioFormatULaw), {0x9F}},
        {companded(kAudioFormatALaw), {0xB5}},
    };
    constexpr std::size_t kFrames = 2'400;
    SpeakerRecorder recorder;
    constexpr std::size_t kSamples = 2 * kFrames;  // in both channels
    std::size_t heardCount = 0;
    for (const Case& one : cases) {
        RepeatingClient client(one.sample, one.sample.size(), kFrames);
        std::unique_ptr<PlaybackStream> stream;
        ASSERT_EQ(audioDevice()->openPlayback(one.format, client, stream), noErr)
            << one.format.mBitsPerChannel << " " << one.format.mFormatFlags;
        EXPECT_EQ(stream->start(), noErr);
        // It runs dry, and what is heard then is silence.
        EXPECT_TRUE(waitFor([&] { return client.said == kFrames; })) << client.said;
        const auto heard = recorder.waitForSamples(heardCount + kSamples);
        ASSERT_EQ(heard.size(), heardCount + kSamples);
        for (std::size_t i = heardCount; i < heardCount + kSamples; ++i) {
            ASSERT_NEAR(heard[i], 0x2000, 0x100)
                << one.format.mBitsPerChannel << " " << one.format.mFormatFlags << " at " << i;
        }
        heardCount += kSamples;
    }
    for (const auto& format : {pcmFormat(8000, 8), pcmFormat(192000, 3), pcmFormat(44100, 7)}) {
        RampClient player;
        std::unique_ptr<PlaybackStream> playback;
        EXPECT_EQ(audioDevice()->openPlayback(format, player, playback), noErr);
        CollectingClient collector(0);
        std::unique_ptr<CaptureStream> capture;
        EXPECT_EQ(audioDevice()->openCapture(format, collector, capture), noErr);
    }
    for (const auto& format :
         {pcmFormat(7999, 1), pcmFormat(192001, 1), pcmFormat(44100.5, 1), pcmFormat(48000, 9),
          pcmFormat(48000, 0), pcmFormat(48000, 1, 64, kFloat), opusFormat(48000, 2)}) {
        RampClient player;
        std::unique_ptr<PlaybackStream> playback;
        EXPECT_EQ(audioDevice()->openPlayback(format, player, playback),
                  kAudioFormatUnsupportedDataFormatError);
        EXPECT_EQ(playback, nullptr);
    }
}

TEST_P(PulseDevice, playsSamplesOf8BitsAsSoxDoes) {
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 256; ++i) {
        bytes.push_back(static_cast<unsigned char>(i));
    }
    const TemporaryFolder folder;
    writeFile(folder / "bytes", std::as_bytes(std::span(bytes)));
    SpeakerRecorder recorder;
    std::vector<std::int16_t> expected;
    for (const auto& [format, encoding] : {std::pair(pcmFormat(48000, 1, 8, 0), "unsigned-integer"),
                                           std::pair(companded(kAudioFormatALaw), "a-law"),
                                           std::pair(companded(kAudioFormatULaw), "mu-law")}) {
        const std::string converted =
            outputOf(std::string("sox -D -t raw -r 48000 -c 1 -b 8 -e ") + encoding + " " +
                     (folder / "bytes").string() + " -t raw -b 16 -e signed-integer -");
        for (std::size_t i = 0; i + 1 < converted.size(); i += 2) {
            std::int16_t sample = 0;
            std::memcpy(&sample, &converted[i], sizeof(sample));
            if (sample != 0) {
                expected.insert(expected.end(), {sample, sample});
            }
        }
        RepeatingClient client(bytes, 1, bytes.size());
        std::unique_ptr<PlaybackStream> stream;
        ASSERT_EQ(audioDevice()->openPlayback(format, client, stream), noErr);
        EXPECT_EQ(stream->start(), noErr);
        stream->drain();
        EXPECT_TRUE(waitFor([&] { return client.said == bytes.size(); }));
    }
    EXPECT_GT(expected.size(), 2U * 3 * 253);
    EXPECT_EQ(recorder.waitForSamples(expected.size()), expected);
}

/// Counts what the device's thread allocates from its first call on.
class CountingCollector final : public CollectingClient {
 public:
    using CollectingClient::CollectingClient;

    std::size_t push(std::span<const std::byte> captured) noexcept override {
        if (std::this_thread::get_id() != testThread_) {
            RealTimeProbe::watchThisThread();
        }
        return CollectingClient::push(captured);
    }

 private:
    const std::thread::id testThread_ = std::this_thread::get_id();
};

TEST_P(PulseDevice, capturesEverySampleOnceAlsoWhenItHasToWait) {
    constexpr std::size_t kSamples = 30'000;
    const TemporaryFolder folder;
    {
        const auto samples = rampSamples(kSamples);
        writeFile(folder / "ramp.raw", std::as_bytes(std::span(samples)));
    }
    CountingCollector client(2 * kSamples);
    RealTimeProbe::reset();
    const auto stream = openCapture(client);
    client.room = 480;
    stream->roomAdded();
    EXPECT_TRUE(waitFor([&] { return client.room == 0; }));
    outputOf("paplay --device=mic --raw --format=s16le --rate=48000 --channels=1 " +
             (folder / "ramp.raw").string());
    // All of it has waited outside. Room for pieces that are none of the server's.
    EXPECT_TRUE(waitFor([&] {
        client.room = 997;
        stream->roomAdded();
        return client.keptCount >= kSamples;
    }));
    EXPECT_EQ(client.samples(), rampSamples(kSamples));
    EXPECT_EQ(RealTimeProbe::allocationCount(), 0);

    client.room = 1'000'000'000;
    stream->finish();
    const int pushCount = client.pushCount;
    stream->roomAdded();
    stream->finish();
    EXPECT_EQ(client.pushCount, pushCount);
    EXPECT_FALSE(client.isGone);
}

/// A stream in each of the states in which a server can go away.
struct StreamsOfEveryKind {
    RampClient openedClient{48'000};
    RampClient playingClient{480'000'000};
    RampClient pausedClient{480'000};
    RampClient starvedClient{100};
    RampClient drainingClient{48'000'000};
    CollectingClient capturingClient{0};
    CollectingClient fullClient{0};
    const std::unique_ptr<PlaybackStream> opened = openPlayback(openedClient);
    const std::unique_ptr<PlaybackStream> playing = openPlayback(playingClient);
    const std::unique_ptr<PlaybackStream> paused = openPlayback(pausedClient);
    const std::unique_ptr<PlaybackStream> starved = openPlayback(starvedClient);
    const std::unique_ptr<PlaybackStream> draining = openPlayback(drainingClient);
    const std::unique_ptr<CaptureStream> capturing = openCapture(capturingClient);
    const std::unique_ptr<CaptureStream> full = openCapture(fullClient);

    StreamsOfEveryKind() {
        capturingClient.room = 1'000'000'000;
        capturing->roomAdded();
        for (PlaybackStream* const stream :
             {playing.get(), paused.get(), starved.get(), draining.get()}) {
            EXPECT_EQ(stream->start(), noErr);
        }
        draining->drain();
        EXPECT_TRUE(waitFor([&] {
            return playing->framesPlayed() > 4'800 && paused->framesPlayed() > 0 &&
                   starvedClient.said == 100 && capturingClient.pushCount > 0 &&
                   fullClient.pushCount > 0;
        }));
        EXPECT_EQ(paused->pause(), noErr);
    }

    bool areAllGone() const {
        return openedClient.isGone && playingClient.isGone && pausedClient.isGone &&
               starvedClient.isGone && drainingClient.isGone && capturingClient.isGone &&
               fullClient.isGone;
    }

    void expectToBeHarmless() {
        for (PlaybackStream* const stream :
             {opened.get(), playing.get(), paused.get(), starved.get(), draining.get()}) {
            const std::uint64_t played = stream->framesPlayed();
            EXPECT_EQ(stream->start(), kAudioQueueErr_InvalidDevice);
            EXPECT_EQ(stream->pause(), kAudioQueueErr_InvalidDevice);
            stream->audioAdded();
            stream->drain();
            EXPECT_EQ(stream->framesPlayed(), played);
        }
        for (CaptureStream* const stream : {capturing.get(), full.get()}) {
            stream->roomAdded();
            stream->finish();
        }
        for (const RampClient* const client :
             {&openedClient, &playingClient, &pausedClient, &starvedClient, &drainingClient}) {
            EXPECT_TRUE(client->isInOrder);
        }
    }
};

TEST_P(PulseDevice, outlivesAServerThatIsKilled) {
    StreamsOfEveryKind streams;
    server_.kill();
    EXPECT_TRUE(waitFor([&] { return streams.areAllGone(); }));
    streams.expectToBeHarmless();
    RampClient client;
    std::unique_ptr<PlaybackStream> none;
    EXPECT_EQ(audioDevice()->openPlayback(kStereo, client, none), kAudioQueueErr_InvalidDevice);
    server_.restart();
    streams.expectToBeHarmless();
    playsOn(4'800);
}

TEST_P(PulseDevice, playsOnWhereTheUserMovesIt) {
    RampClient client(480'000'000);
    const auto stream = openPlayback(client);
    EXPECT_EQ(stream->start(), noErr);
    EXPECT_TRUE(waitFor([&] { return client.said > 4'800; }));
    outputOf("pactl move-sink-input $(pactl list short sink-inputs | cut -f1) mic");
    const std::uint64_t then = client.said;
    EXPECT_TRUE(waitFor([&] { return client.said > then + 24'000; }));
    EXPECT_FALSE(client.isGone);
    EXPECT_TRUE(client.isInOrder);
}

TEST_P(PulseDevice, listsWhatThereIsAndWhatIsUsed) {
    const auto used = [] {
        AudioDeviceList list;
        EXPECT_EQ(listAudioDevices(list), noErr);
        std::string names;
        for (const AudioDeviceInfo& device : list.devices) {
            names += device.isUsed ? device.name + " " : "";
        }
        return names;
    };
    AudioDeviceList list;
    ASSERT_EQ(listAudioDevices(list), noErr);
    EXPECT_NE(list.server.find(GetParam() == std::string("pipewire") ? "PipeWire 0." : "audio 1"),
              std::string::npos)
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
    EXPECT_EQ(used(), "speaker mic.monitor ");
    // libpulse's own settings, and above them the environment's.
    std::ofstream(std::getenv("PULSE_CLIENTCONFIG"))
        << "default-sink = mic\ndefault-source = speaker.monitor\n";
    EXPECT_EQ(used(), "mic speaker.monitor ");
    std::ofstream(std::getenv("PULSE_CLIENTCONFIG")) << "";
    EXPECT_EQ(used(), "speaker mic.monitor ");
    ::setenv("PULSE_SINK", "mic", 1);
    ::setenv("PULSE_SOURCE", "speaker.monitor", 1);
    EXPECT_EQ(used(), "mic speaker.monitor ");
    // And it is what is opened.
    RampClient client(480'000'000);
    const auto stream = openPlayback(client);
    EXPECT_EQ(stream->start(), noErr);
    EXPECT_EQ(outputOf("pactl list sinks | grep -A1 RUNNING | grep -c 'Name: mic' || true"), "1\n");
    // PipeWire plays on its default then.
    ::setenv("PULSE_SINK", "none", 1);
    EXPECT_EQ(used(), GetParam() == std::string("pipewire") ? "speaker speaker.monitor "
                                                            : "speaker.monitor ");
}

INSTANTIATE_TEST_SUITE_P(On, PulseDevice, testing::Values("pulseaudio", "pipewire"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST(PulseDeviceAlone, saysAtOnceThatThereIsNoServer) {
    const TemporaryFolder folder;
    ::setenv("PULSE_SERVER", ("unix:" + (folder / "none").string()).c_str(), 1);
    const auto begin = std::chrono::steady_clock::now();
    RampClient player;
    std::unique_ptr<PlaybackStream> playback;
    EXPECT_EQ(audioDevice()->openPlayback(kStereo, player, playback), kAudioQueueErr_InvalidDevice);
    CollectingClient collector(0);
    std::unique_ptr<CaptureStream> capture;
    EXPECT_EQ(audioDevice()->openCapture(kMono, collector, capture), kAudioQueueErr_InvalidDevice);
    AudioDeviceList list;
    EXPECT_EQ(listAudioDevices(list), kAudioQueueErr_InvalidDevice);
    // Far below the bound for servers that do not answer.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
}

}  // namespace
}  // namespace zav::test
