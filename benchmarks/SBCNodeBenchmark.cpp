// Measures the cost of an SBC node compared with the cost of the codec. The encoder node and the
// decoder node each have one target that does nothing. Each node runs against a plain loop, which
// makes the same libsbc calls into one reused buffer. The audio is 16 kHz mono in the default
// configuration, in chunks of 1, 12 (about 100 ms) and 62 (about half a second) SBC frames.
// SBCNoiseFloor runs the plain loop against itself, to show the error of the measurement.
// NodeComparison.hpp describes the comparison.

#include <benchmark/benchmark.h>
#include <sbc/sbc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "Chunks.hpp"
#include "NodeComparison.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::benchmarks {
namespace {

using Configuration = SBCCoding::SBCConfiguration;

// The default configuration's sizes.
constexpr std::size_t kFramesPerSbcFrame = 128;
constexpr std::size_t kCodeSize = 256;
constexpr std::size_t kFrameLength = 72;
constexpr std::size_t kSbcFramesPerSlice = 248;  // upper limit; a slice has whole chunks only

std::span<const std::byte> slicePcm() {
    static const auto pcm = test::testPcm(kSbcFramesPerSlice * kFramesPerSbcFrame);
    return pcm;
}

std::span<const std::byte> sliceFrames() {
    static const auto frames = test::SbcLoop(Configuration()).encode(slicePcm());
    return frames;
}

/// A codec state with the same setup as in the nodes.
class CodecState {
 public:
    CodecState() {
        require(sbc_init(&state_, 0) == 0);
        const Configuration configuration;
        state_.frequency = static_cast<std::uint8_t>(configuration.freq);
        state_.mode = static_cast<std::uint8_t>(configuration.mode);
        state_.subbands = static_cast<std::uint8_t>(configuration.subband);
        state_.blocks = static_cast<std::uint8_t>(configuration.blocks);
        state_.allocation = static_cast<std::uint8_t>(configuration.allocation);
        state_.bitpool = configuration.bitpool;
        state_.endian = static_cast<std::uint8_t>(configuration.endian);
    }
    ~CodecState() { sbc_finish(&state_); }

    CodecState(const CodecState&) = delete;
    CodecState& operator=(const CodecState&) = delete;

    sbc_t* get() { return &state_; }

 private:
    sbc_t state_{};
};

class PlainEncoder {
 public:
    explicit PlainEncoder(const EqualChunks& chunks)
        : chunks_(chunks), output_(chunks.chunkSize() / kCodeSize * kFrameLength) {}

    void runChunk(std::size_t index) {
        std::byte* frame = output_.data();
        for (auto pcm = chunks_[index]; !pcm.empty();
             pcm = pcm.subspan(kCodeSize), frame += kFrameLength) {
            ssize_t written = 0;
            require(sbc_encode(state_.get(), pcm.data(), kCodeSize, frame, kFrameLength, &written) >
                    0);
        }
        benchmark::ClobberMemory();
    }

 private:
    EqualChunks chunks_;
    CodecState state_;
    std::vector<std::byte> output_;
};

class PlainDecoder {
 public:
    explicit PlainDecoder(const EqualChunks& chunks)
        : chunks_(chunks), output_(chunks.chunkSize() / kFrameLength * kCodeSize) {}

    void runChunk(std::size_t index) {
        std::byte* pcm = output_.data();
        for (auto frame = chunks_[index]; !frame.empty();
             frame = frame.subspan(kFrameLength), pcm += kCodeSize) {
            std::size_t written = 0;
            require(sbc_decode(state_.get(), frame.data(), kFrameLength, pcm, kCodeSize, &written) >
                    0);
        }
        benchmark::ClobberMemory();
    }

 private:
    EqualChunks chunks_;
    CodecState state_;
    std::vector<std::byte> output_;
};

class EncoderGraph {
 public:
    explicit EncoderGraph(const EqualChunks& chunks) : chunks_(chunks) {
        source_->setOutDataFormat(linearPcm(16000, 1));
        const auto encoder = makeNode<SBCEncoder>(source_, std::make_shared<Configuration>());
        makeNode<PeripheralSink>(encoder);
    }

    void runChunk(std::size_t index) {
        const auto pcm = chunks_[index];
        source_->downstreams().receiveAudio(pcm.data(), pcm.size(),
                                            pcm.size() / kCodeSize * kFramesPerSbcFrame, nullptr);
    }

 private:
    EqualChunks chunks_;
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

class DecoderGraph {
 public:
    explicit DecoderGraph(const EqualChunks& chunks) : chunks_(chunks) {
        source_->setOutDataFormat(sbcFormat(Configuration(), 16000, 1));
        const auto decoder = makeNode<SBCDecoder>(source_);
        makeNode<PeripheralSink>(decoder);
    }

    void runChunk(std::size_t index) {
        const auto frames = chunks_[index];
        source_->downstreams().receiveAudio(frames.data(), frames.size(),
                                            frames.size() / kFrameLength, nullptr);
    }

 private:
    EqualChunks chunks_;
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
};

template <class Plain, class Node>
void compare(benchmark::State& state, std::span<const std::byte> slice,
             std::size_t bytesPerSbcFrame) {
    const auto sbcFramesPerChunk = static_cast<std::size_t>(state.range(0));
    const EqualChunks chunks(slice, sbcFramesPerChunk * bytesPerSbcFrame);
    compareWithPlain<Plain, Node>(state, {chunks.size(), sbcFramesPerChunk, "frame"}, chunks);
}

void SBCEncoderNode(benchmark::State& state) {
    compare<PlainEncoder, EncoderGraph>(state, slicePcm(), kCodeSize);
}

void SBCDecoderNode(benchmark::State& state) {
    compare<PlainDecoder, DecoderGraph>(state, sliceFrames(), kFrameLength);
}

void SBCNoiseFloor(benchmark::State& state) {
    compare<PlainEncoder, PlainEncoder>(state, slicePcm(), kCodeSize);
}

void chunkSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("sbc_frames")->Arg(1)->Arg(12)->Arg(62)->MinTime(2)->UseManualTime();
}

BENCHMARK(SBCNoiseFloor)->Apply(chunkSizes);
BENCHMARK(SBCEncoderNode)->Apply(chunkSizes);
BENCHMARK(SBCDecoderNode)->Apply(chunkSizes);

}  // namespace
}  // namespace zav::benchmarks
