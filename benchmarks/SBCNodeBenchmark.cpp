// What an SBC node adds to the codec. The encoder and the decoder node, each with one target that
// does nothing, run against a plain loop that makes the same libsbc calls into one buffer that it
// keeps: 16 kHz mono in the default configuration, in chunks of 1, 12 (about 100 ms) and 62 (about
// half a second) SBC frames. NoiseFloor runs the plain loop against itself: what differs there is
// not the node.
//
// Plain loop and node take turns in slices of about 250 SBC frames, now one first, now the other.
// Where a codec state and the stack happen to lie makes libsbc faster or slower by up to a percent;
// many pairs of plain loop and node, and another stack position for each turn, even that out.
// Counters, from the medians over all slices:
//
//   plain_ns_per_frame  processor time of the plain loop for one SBC frame
//   node_ns_per_frame   the same of the node, including the source that pushes the chunk to it
//   overhead_percent    how much longer a slice of the node takes than the plain one beside it
//
// The benchmark's own time is that of one slice of the node.

#include <alloca.h>
#include <benchmark/benchmark.h>
#include <sbc/sbc.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "Measuring.hpp"
#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::benchmarks {
namespace {

using Configuration = SBCCoding::SBCConfiguration;

// The default configuration's sizes.
constexpr std::size_t kFramesPerSbcFrame = 128;
constexpr std::size_t kCodeSize = 256;
constexpr std::size_t kFrameLength = 72;
constexpr std::size_t kSbcFramesPerSlice = 248;  // of whole chunks at most

std::span<const std::byte> slicePcm() {
    static const auto pcm = test::testPcm(kSbcFramesPerSlice * kFramesPerSbcFrame);
    return pcm;
}

std::span<const std::byte> sliceFrames() {
    static const auto frames = test::SbcLoop(Configuration()).encode(slicePcm());
    return frames;
}

/// The plain loops check libsbc's answers as the nodes do.
void require(bool isGood) {
    if (!isGood) {
        std::abort();
    }
}

/// A codec state set up as the nodes set up theirs.
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
    explicit PlainEncoder(std::size_t sbcFramesPerChunk)
        : sbcFramesPerChunk_(sbcFramesPerChunk), output_(sbcFramesPerChunk * kFrameLength) {}

    void receiveChunk(const std::byte* pcm) {
        std::byte* frame = output_.data();
        for (std::size_t i = 0; i < sbcFramesPerChunk_;
             ++i, pcm += kCodeSize, frame += kFrameLength) {
            ssize_t written = 0;
            require(sbc_encode(state_.get(), pcm, kCodeSize, frame, kFrameLength, &written) > 0);
        }
        benchmark::ClobberMemory();
    }

 private:
    CodecState state_;
    std::size_t sbcFramesPerChunk_;
    std::vector<std::byte> output_;
};

class PlainDecoder {
 public:
    explicit PlainDecoder(std::size_t sbcFramesPerChunk)
        : sbcFramesPerChunk_(sbcFramesPerChunk), output_(sbcFramesPerChunk * kCodeSize) {}

    void receiveChunk(const std::byte* frame) {
        std::byte* pcm = output_.data();
        for (std::size_t i = 0; i < sbcFramesPerChunk_;
             ++i, frame += kFrameLength, pcm += kCodeSize) {
            std::size_t written = 0;
            require(sbc_decode(state_.get(), frame, kFrameLength, pcm, kCodeSize, &written) > 0);
        }
        benchmark::ClobberMemory();
    }

 private:
    CodecState state_;
    std::size_t sbcFramesPerChunk_;
    std::vector<std::byte> output_;
};

class EncoderGraph {
 public:
    explicit EncoderGraph(std::size_t sbcFramesPerChunk) : sbcFramesPerChunk_(sbcFramesPerChunk) {
        source_->setOutDataFormat(test::pcmFormat(16000, 1));
        const auto encoder = makeNode<SBCEncoder>(source_, std::make_shared<Configuration>());
        makeNode<PeripheralSink>(encoder);
    }

    void receiveChunk(const std::byte* pcm) {
        source_->downstreams().receiveAudio(pcm, sbcFramesPerChunk_ * kCodeSize,
                                            sbcFramesPerChunk_ * kFramesPerSbcFrame, nullptr);
    }

 private:
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::size_t sbcFramesPerChunk_;
};

class DecoderGraph {
 public:
    explicit DecoderGraph(std::size_t sbcFramesPerChunk) : sbcFramesPerChunk_(sbcFramesPerChunk) {
        source_->setOutDataFormat(
            test::sbcFormat(16000, 1, Configuration().formatFlags(), kFrameLength));
        const auto decoder = makeNode<SBCDecoder>(source_);
        makeNode<PeripheralSink>(decoder);
    }

    void receiveChunk(const std::byte* frames) {
        source_->downstreams().receiveAudio(frames, sbcFramesPerChunk_ * kFrameLength,
                                            sbcFramesPerChunk_, nullptr);
    }

 private:
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::size_t sbcFramesPerChunk_;
};

template <class Plain, class Node>
void compare(benchmark::State& state, std::span<const std::byte> slice,
             std::size_t bytesPerSbcFrame) {
    constexpr std::size_t kPairs = 32;
    const auto sbcFramesPerChunk = static_cast<std::size_t>(state.range(0));
    const std::size_t chunksPerSlice = kSbcFramesPerSlice / sbcFramesPerChunk;
    std::vector<std::pair<std::unique_ptr<Plain>, std::unique_ptr<Node>>> pairs;
    for (std::size_t i = 0; i < kPairs; ++i) {
        pairs.emplace_back(std::make_unique<Plain>(sbcFramesPerChunk),
                           std::make_unique<Node>(sbcFramesPerChunk));
    }

    std::size_t turn = 0;
    const auto nanosecondsOfSlice = [&](auto& receiver) {
        // Goes through all positions in a memory page; the stack is aligned to 16 bytes.
        constexpr std::size_t kPageSize = 4096;
        constexpr std::size_t kStep = 17 * 16;
        void* const shift = ::alloca(16 + turn * kStep % kPageSize);
        benchmark::DoNotOptimize(shift);
        return nanosecondsOf([&] {
            for (std::size_t i = 0; i < chunksPerSlice; ++i) {
                receiver.receiveChunk(&slice[i * sbcFramesPerChunk * bytesPerSbcFrame]);
            }
        });
    };

    std::vector<double> plainTimes;
    std::vector<double> nodeTimes;
    std::vector<double> ratios;
    for (auto _ : state) {
        auto& [plain, node] = pairs[turn / 2 % kPairs];
        const bool isPlainFirst = turn % 2 == 0;
        double plainTime = isPlainFirst ? nanosecondsOfSlice(*plain) : 0;
        const double nodeTime = nanosecondsOfSlice(*node);
        if (!isPlainFirst) {
            plainTime = nanosecondsOfSlice(*plain);
        }
        ++turn;
        plainTimes.push_back(plainTime);
        nodeTimes.push_back(nodeTime);
        ratios.push_back(nodeTime / plainTime);
        state.SetIterationTime(nodeTime * 1e-9);
    }

    const auto sbcFrameCount = static_cast<double>(chunksPerSlice * sbcFramesPerChunk);
    state.counters["plain_ns_per_frame"] = median(plainTimes) / sbcFrameCount;
    state.counters["node_ns_per_frame"] = median(nodeTimes) / sbcFrameCount;
    state.counters["overhead_percent"] = 100 * (median(ratios) - 1);
}

void SBCEncoderNode(benchmark::State& state) {
    compare<PlainEncoder, EncoderGraph>(state, slicePcm(), kCodeSize);
}

void SBCDecoderNode(benchmark::State& state) {
    compare<PlainDecoder, DecoderGraph>(state, sliceFrames(), kFrameLength);
}

void NoiseFloor(benchmark::State& state) {
    compare<PlainEncoder, PlainEncoder>(state, slicePcm(), kCodeSize);
}

void chunkSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("sbc_frames")->Arg(1)->Arg(12)->Arg(62)->MinTime(2)->UseManualTime();
}

BENCHMARK(NoiseFloor)->Apply(chunkSizes);
BENCHMARK(SBCEncoderNode)->Apply(chunkSizes);
BENCHMARK(SBCDecoderNode)->Apply(chunkSizes);

}  // namespace
}  // namespace zav::benchmarks
