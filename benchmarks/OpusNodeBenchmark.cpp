// Measures the cost of an Opus node compared with the cost of the codec. The encoder node and the
// decoder node each have one target that does nothing. Each node runs against a plain loop, which
// makes the same libopus calls into one reused buffer. The audio is 16 kHz mono and 48 kHz stereo,
// in packets of 60 ms and in chunks of 1 and 8 packets. The noise floors run the plain loop against
// itself, to show the error of the measurement. NodeComparison.hpp describes the comparison.
// Diagnostics lines are dropped.
//
// The audio consists of tones. libopus encodes tones in its fastest mode (CELT). Speech at 16 kHz
// takes libopus several times as long. The cost of the node stays the same.
//
// OpusDiagnosticsLine measures the cost of the line that the encoder node prints for each packet.
// No receiver is installed, and standard output is a file:
//
//   printed_ns_per_line  processor time to print it, the file's share included
//   dropped_ns_per_line  the same with a receiver that does nothing
//
// The benchmark's own time is the time of one batch of printed lines.

#include <benchmark/benchmark.h>
#include <opus.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Chunks.hpp"
#include "Measuring.hpp"
#include "NodeComparison.hpp"
#include "ZAVAudioStreaming/codecs/OpusDecoder.hpp"
#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::benchmarks {
namespace {

constexpr std::size_t kPacketsPerSlice = 8;
constexpr std::size_t kMaximumPacketSize = 3828;  // as in the encoder node

/// Installs a receiver of diagnostics lines for as long as it lives.
class DiagnosticsTo {
 public:
    explicit DiagnosticsTo(DiagnosticsHandler handler) : before_(setDiagnosticsHandler(handler)) {}
    ~DiagnosticsTo() { setDiagnosticsHandler(before_); }

    DiagnosticsTo(const DiagnosticsTo&) = delete;
    DiagnosticsTo& operator=(const DiagnosticsTo&) = delete;

 private:
    DiagnosticsHandler before_;
};

void drop(std::string_view /*line*/) {}

struct Stream {
    int rate;
    int channels;

    int framesPerPacket() const { return rate * 60 / 1000; }
    std::size_t packetPcmSize() const { return test::opusPacketPcmSize(rate, channels); }
    std::vector<std::byte> slicePcm() const {
        return test::testPcm(kPacketsPerSlice * packetPcmSize() / sizeof(opus_int16));
    }
};

struct DestroyCodec {
    void operator()(::OpusEncoder* codec) const { opus_encoder_destroy(codec); }
    void operator()(::OpusDecoder* codec) const { opus_decoder_destroy(codec); }
};

class PlainEncoder {
 public:
    PlainEncoder(const Stream& stream, const EqualChunks& chunks)
        : stream_(stream),
          chunks_(chunks),
          codec_(
              opus_encoder_create(stream.rate, stream.channels, OPUS_APPLICATION_AUDIO, nullptr)) {
        require(codec_ != nullptr);
    }

    void runChunk(std::size_t index) {
        for (auto pcm = chunks_[index]; !pcm.empty(); pcm = pcm.subspan(stream_.packetPcmSize())) {
            require(opus_encode(codec_.get(), reinterpret_cast<const opus_int16*>(pcm.data()),
                                stream_.framesPerPacket(), packet_.data(),
                                static_cast<opus_int32>(packet_.size())) > 0);
        }
        benchmark::ClobberMemory();
    }

 private:
    Stream stream_;
    EqualChunks chunks_;
    std::unique_ptr<::OpusEncoder, DestroyCodec> codec_;
    std::vector<unsigned char> packet_ = std::vector<unsigned char>(kMaximumPacketSize);
};

class PlainDecoder {
 public:
    PlainDecoder(const Stream& stream, const std::vector<PacketChunk>& chunks)
        : stream_(stream),
          chunks_(chunks),
          codec_(opus_decoder_create(stream.rate, stream.channels, nullptr)),
          pcm_(stream.slicePcm().size() / sizeof(opus_int16)) {
        require(codec_ != nullptr);
    }

    void runChunk(std::size_t index) {
        const PacketChunk& chunk = chunks_[index];
        opus_int16* pcm = pcm_.data();
        for (const auto& description : chunk.descriptions) {
            const auto packet = chunk.packet(description);
            const int frameCount = opus_decode(
                codec_.get(), reinterpret_cast<const unsigned char*>(packet.data()),
                static_cast<opus_int32>(packet.size()), pcm, stream_.framesPerPacket(), 0);
            require(frameCount > 0);
            pcm += frameCount * stream_.channels;
        }
        benchmark::ClobberMemory();
    }

 private:
    Stream stream_;
    const std::vector<PacketChunk>& chunks_;
    std::unique_ptr<::OpusDecoder, DestroyCodec> codec_;
    std::vector<opus_int16> pcm_;
};

class EncoderGraph {
 public:
    EncoderGraph(const Stream& stream, const EqualChunks& chunks) : chunks_(chunks) {
        source_->setOutDataFormat(
            linearPcm(stream.rate, static_cast<std::uint32_t>(stream.channels)));
        const auto encoder = makeNode<OpusEncoder>(source_);
        makeNode<PeripheralSink>(encoder);
        bytesPerFrame_ = encoder->inDataFormat().mBytesPerFrame;
    }

    void runChunk(std::size_t index) {
        const auto pcm = chunks_[index];
        source_->downstreams().receiveAudio(pcm.data(), pcm.size(), pcm.size() / bytesPerFrame_,
                                            nullptr);
    }

 private:
    EqualChunks chunks_;
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::size_t bytesPerFrame_ = 0;
};

class DecoderGraph {
 public:
    DecoderGraph(const Stream& stream, const std::vector<PacketChunk>& chunks) : chunks_(chunks) {
        source_->setOutDataFormat(
            opusFormat(stream.rate, static_cast<std::uint32_t>(stream.channels)));
        const auto decoder = makeNode<OpusDecoder>(source_);
        makeNode<PeripheralSink>(decoder);
    }

    void runChunk(std::size_t index) { push(*source_, chunks_[index]); }

 private:
    const std::vector<PacketChunk>& chunks_;
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

Stream streamOf(const benchmark::State& state) {
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

std::size_t packetsPerChunk(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(2));
}

template <class Plain, class Node>
void compareEncoders(benchmark::State& state) {
    const DiagnosticsTo nowhere(drop);
    const Stream stream = streamOf(state);
    const auto pcm = stream.slicePcm();
    const EqualChunks chunks(pcm, packetsPerChunk(state) * stream.packetPcmSize());
    compareWithPlain<Plain, Node>(state, {chunks.size(), packetsPerChunk(state), "packet"}, stream,
                                  chunks);
}

template <class Plain, class Node>
void compareDecoders(benchmark::State& state) {
    const Stream stream = streamOf(state);
    const auto packets = test::opusLoopEncode(stream.slicePcm(), stream.rate, stream.channels);
    const auto chunks = chunksOf(packets, packetsPerChunk(state));
    compareWithPlain<Plain, Node>(state, {chunks.size(), packetsPerChunk(state), "packet"}, stream,
                                  chunks);
}

void OpusEncoderNode(benchmark::State& state) {
    compareEncoders<PlainEncoder, EncoderGraph>(state);
}

void OpusEncoderNoiseFloor(benchmark::State& state) {
    compareEncoders<PlainEncoder, PlainEncoder>(state);
}

void OpusDecoderNode(benchmark::State& state) {
    compareDecoders<PlainDecoder, DecoderGraph>(state);
}

void OpusDecoderNoiseFloor(benchmark::State& state) {
    compareDecoders<PlainDecoder, PlainDecoder>(state);
}

void OpusDiagnosticsLine(benchmark::State& state) {
    constexpr int kLinesPerBatch = 1000;
    const test::TemporaryFolder folder;
    std::FILE* const file = std::fopen((folder / "lines").c_str(), "w");
    require(file != nullptr);
    const auto nanosecondsPerLine = [&](DiagnosticsHandler handler) {
        const DiagnosticsTo receiver(handler);
        // `stdout` is a variable in glibc. The assignment keeps the file's full buffering. After
        // freopen on a terminal, the file would not be fully buffered.
        std::FILE* const before = std::exchange(stdout, file);
        const double time = nanosecondsOf([] {
            for (int i = 0; i < kLinesPerBatch; ++i) {
                printDiagnostics("Succeed opus encoding to 125 bytes");
            }
        });
        stdout = before;
        return time / kLinesPerBatch;
    };

    std::vector<double> printed;
    std::vector<double> dropped;
    for (auto _ : state) {
        printed.push_back(nanosecondsPerLine(nullptr));
        dropped.push_back(nanosecondsPerLine(drop));
        state.SetIterationTime(printed.back() * kLinesPerBatch * 1e-9);
    }
    std::fclose(file);
    state.counters["printed_ns_per_line"] = median(printed);
    state.counters["dropped_ns_per_line"] = median(dropped);
}

template <int... PacketsPerChunk>
void streams(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"rate", "channels", "packets"})->MinTime(2)->UseManualTime();
    for (const Stream stream : {Stream{16000, 1}, Stream{48000, 2}}) {
        (benchmark->Args({stream.rate, stream.channels, PacketsPerChunk}), ...);
    }
}

BENCHMARK(OpusEncoderNoiseFloor)->Apply(streams<1>);
BENCHMARK(OpusEncoderNode)->Apply(streams<1, 8>);
BENCHMARK(OpusDecoderNoiseFloor)->Apply(streams<1>);
BENCHMARK(OpusDecoderNode)->Apply(streams<1, 8>);
// The number of batches is fixed, because each batch adds its lines to the file.
BENCHMARK(OpusDiagnosticsLine)->Iterations(500)->UseManualTime();

}  // namespace
}  // namespace zav::benchmarks
