// Measures the cost of audio queues without a sound server. The benchmark itself advances the clock
// of the device.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <thread>
#include <vector>

#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/queues/BufferQueue.hpp"
#include "ZAVAudioStreaming/sinks/PlaybackSink.hpp"
#include "ZAVAudioStreaming/sources/RecordSource.hpp"
#include "tests/support/VirtualDevice.hpp"

namespace zav {
namespace {

using test::VirtualDevice;

constexpr double kRate = 48000;

/// Waits for the callbacks, because virtual time is faster than threads.
void settle(AudioQueueRef queue) {
    while (!queue->queue->isIdle()) {
        std::this_thread::yield();
    }
}

std::int64_t allocatedBytes() {
    const auto info = ::mallinfo2();
    return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

/// Plays stereo. Pushes half a second of audio after each half second that was played.
void playing(benchmark::State& state) {
    setDiagnosticsHandler([](std::string_view) {});
    VirtualDevice device;
    device.receiver = [](std::span<const std::byte>) {};
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(linearPcm(kRate, 2));
    const auto sink = makeNode<PlaybackSink>(source);
    const std::vector<std::byte> halfSecond(sink->queueBufferSize(), std::byte{1});
    const auto push = [&] {
        source->downstreams().receiveAudio(halfSecond.data(), halfSecond.size(),
                                           halfSecond.size() / 4, nullptr);
    };
    for (int i = 0; i < 4; ++i) {
        push();
    }
    sink->play();
    double seconds = 0;
    for (auto _ : state) {
        device.advance(0.5);
        settle(sink->audioQueueRef());
        push();
        seconds += 0.5;
    }
    state.counters["per_second_of_audio"] =
        benchmark::Counter(seconds, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(playing)->Name("Queue/play 48 kHz stereo")->UseRealTime();

void recording(benchmark::State& state) {
    setDiagnosticsHandler([](std::string_view) {});
    VirtualDevice device;
    const auto source = makeNode<RecordSource>(linearPcm(kRate, 2));
    source->record();
    double seconds = 0;
    for (auto _ : state) {
        device.advance(0.5);
        settle(source->audioQueueRef());
        seconds += 0.5;
    }
    source->stop();
    state.counters["per_second_of_audio"] =
        benchmark::Counter(seconds, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(recording)->Name("Queue/record 48 kHz stereo")->UseRealTime();

/// Measures the virtual device with a client that does nothing. Subtract this result from the
/// others.
void deviceAlone(benchmark::State& state) {
    class Client final : public detail::PlaybackClient {
     public:
        std::size_t pull(std::span<std::byte> room) noexcept override {
            std::memset(room.data(), 1, room.size());
            return room.size();
        }
        std::uint64_t mark() const noexcept override { return kNoMark; }
        void played(std::uint64_t) noexcept override {}
        void ranDry(std::uint64_t) noexcept override {}
        void deviceGone() noexcept override {}
    };
    VirtualDevice device;
    device.receiver = [](std::span<const std::byte>) {};
    Client client;
    std::unique_ptr<detail::PlaybackStream> stream;
    if (device.openPlayback(linearPcm(kRate, 2), client, stream) != noErr ||
        stream->start() != noErr) {
        state.SkipWithError("the virtual device does not open");
        return;
    }
    double seconds = 0;
    for (auto _ : state) {
        device.advance(0.5);
        seconds += 0.5;
    }
    state.counters["per_second_of_audio"] =
        benchmark::Counter(seconds, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(deviceAlone)->Name("Queue/virtual device alone")->UseRealTime();

/// Measures how fast a sink starts. The sink starts with its first buffer. The time runs from the
/// push of a chunk that fills this buffer to the device's first frame.
void untilFirstFrame(benchmark::State& state) {
    setDiagnosticsHandler([](std::string_view) {});
    VirtualDevice device;
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(linearPcm(kRate, 2));
    const auto sink = makeNode<PlaybackSink>(source);
    const std::vector<std::byte> chunk(sink->queueBufferSize(), std::byte{1});
    for (auto _ : state) {
        state.PauseTiming();
        sink->stop();
        settle(sink->audioQueueRef());
        sink->autoPlay(0);
        state.ResumeTiming();
        // This call starts the virtual device. The device pulls audio inside the start.
        source->downstreams().receiveAudio(chunk.data(), chunk.size(), chunk.size() / 4, nullptr);
    }
}
BENCHMARK(untilFirstFrame)->Name("Queue/receiveAudio to first frame pulled")->UseRealTime();

/// Measures the memory of a playing sink, as malloc counts it, without a connection to a sound
/// server. compare-live measures the memory with a connection.
void memoryPerSink(benchmark::State& state) {
    setDiagnosticsHandler([](std::string_view) {});
    constexpr std::size_t kSinkCount = 50;
    VirtualDevice device;
    for (auto _ : state) {
        std::vector<std::shared_ptr<PeripheralSource>> sources;
        std::vector<std::shared_ptr<PlaybackSink>> sinks;
        sources.reserve(kSinkCount);
        sinks.reserve(kSinkCount);
        const std::vector<std::byte> second(32000, std::byte{1});
        const std::int64_t before = allocatedBytes();
        for (std::size_t i = 0; i < kSinkCount; ++i) {
            sources.push_back(makeNode<PeripheralSource>());
            sources.back()->setOutDataFormat(linearPcm(16000, 1));
            sinks.push_back(makeNode<PlaybackSink>(sources.back()));
            sources.back()->downstreams().receiveAudio(second.data(), second.size(),
                                                       second.size() / 2, nullptr);
            sinks.back()->play();
        }
        state.counters["bytes_per_sink"] =
            static_cast<double>(allocatedBytes() - before) / kSinkCount;
    }
}
BENCHMARK(memoryPerSink)
    ->Name("Queue/memory of a playing sink, 1 s of 16 kHz mono queued")
    ->Iterations(1);

}  // namespace
}  // namespace zav
