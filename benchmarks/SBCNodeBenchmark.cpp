// What an SBC node adds to the codec. The encoder and the decoder node, each with one target that
// does nothing, run against a plain loop that makes the same libsbc calls into one buffer that it
// keeps: 16 kHz mono in the default configuration, in chunks of one SBC frame, about 100 ms and
// about half a second, always whole SBC frames.
//
// Plain loop and node take turns in slices of about 250 SBC frames, first one first, then the other
// first, so that both meet the same disturbances. Several pairs take turns, because where the
// allocator puts a codec state has an effect of its own. Counters, from the medians of the slices:
//
//   plain_ns_per_frame  processor time of the plain loop for one SBC frame
//   node_ns_per_frame   the same by the node, the call that pushes the chunk included
//   overhead_percent    median by which the node's slice takes longer than the plain one beside it
//
// The benchmark's own time is that of one slice of the node.

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
constexpr std::size_t kSbcFramesPerSlice = 248;

std::span<const std::byte> slicePcm() {
    static const auto pcm = test::testPcm(kSbcFramesPerSlice * kFramesPerSbcFrame);
    return pcm;
}

std::span<const std::byte> sliceFrames() {
    static const auto frames = test::SbcLoop(Configuration()).encode(slicePcm());
    return frames;
}

void require(bool isGood) {
    if (!isGood) {
        std::abort();
    }
}

/// A codec state as the node's own.
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
        : frameCount_(sbcFramesPerChunk), output_(sbcFramesPerChunk * kFrameLength) {}

    void receiveChunk(const std::byte* pcm) {
        std::byte* frame = output_.data();
        for (std::size_t i = 0; i < frameCount_; ++i, pcm += kCodeSize, frame += kFrameLength) {
            ssize_t written = 0;
            require(sbc_encode(state_.get(), pcm, kCodeSize, frame, kFrameLength, &written) > 0);
        }
        benchmark::ClobberMemory();
    }

 private:
    CodecState state_;
    std::size_t frameCount_;
    std::vector<std::byte> output_;
};

class PlainDecoder {
 public:
    explicit PlainDecoder(std::size_t sbcFramesPerChunk)
        : frameCount_(sbcFramesPerChunk), output_(sbcFramesPerChunk * kCodeSize) {}

    void receiveChunk(const std::byte* frame) {
        std::byte* pcm = output_.data();
        for (std::size_t i = 0; i < frameCount_; ++i, frame += kFrameLength, pcm += kCodeSize) {
            std::size_t written = 0;
            require(sbc_decode(state_.get(), frame, kFrameLength, pcm, kCodeSize, &written) > 0);
        }
        benchmark::ClobberMemory();
    }

 private:
    CodecState state_;
    std::size_t frameCount_;
    std::vector<std::byte> output_;
};

class EncoderGraph {
 public:
    explicit EncoderGraph(std::size_t sbcFramesPerChunk) : frameCount_(sbcFramesPerChunk) {
        source_->setOutDataFormat(test::pcmFormat(16000, 1));
        const auto encoder = makeNode<SBCEncoder>(source_, std::make_shared<Configuration>());
        makeNode<PeripheralSink>(encoder);
    }

    void receiveChunk(const std::byte* pcm) {
        source_->downstreams().receiveAudio(pcm, frameCount_ * kCodeSize,
                                            frameCount_ * kFramesPerSbcFrame, nullptr);
    }

 private:
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::size_t frameCount_;
};

class DecoderGraph {
 public:
    explicit DecoderGraph(std::size_t sbcFramesPerChunk) : frameCount_(sbcFramesPerChunk) {
        source_->setOutDataFormat(
            test::sbcFormat(16000, 1, Configuration().formatFlags(), kFrameLength));
        const auto decoder = makeNode<SBCDecoder>(source_);
        makeNode<PeripheralSink>(decoder);
    }

    void receiveChunk(const std::byte* frames) {
        source_->downstreams().receiveAudio(frames, frameCount_ * kFrameLength, frameCount_,
                                            nullptr);
    }

 private:
    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::size_t frameCount_;
};

template <class Plain, class Node>
void compare(benchmark::State& state, std::span<const std::byte> slice, std::size_t bytesPerFrame) {
    constexpr std::size_t kPairs = 8;
    const auto framesPerChunk = static_cast<std::size_t>(state.range(0));
    const std::size_t chunksPerSlice = kSbcFramesPerSlice / framesPerChunk;
    std::vector<std::pair<std::unique_ptr<Plain>, std::unique_ptr<Node>>> pairs;
    for (std::size_t i = 0; i < kPairs; ++i) {
        pairs.emplace_back(std::make_unique<Plain>(framesPerChunk),
                           std::make_unique<Node>(framesPerChunk));
    }
    const auto timeSlice = [&](auto& receiver) {
        return nanosecondsOf([&] {
            for (std::size_t i = 0; i < chunksPerSlice; ++i) {
                receiver.receiveChunk(&slice[i * framesPerChunk * bytesPerFrame]);
            }
        });
    };

    std::vector<double> plainTimes;
    std::vector<double> nodeTimes;
    std::vector<double> ratios;
    std::size_t turn = 0;
    for (auto _ : state) {
        auto& [plain, node] = pairs[turn / 2 % kPairs];
        double plainTime = 0;
        double nodeTime = 0;
        if (turn % 2 == 0) {
            plainTime = timeSlice(*plain);
            nodeTime = timeSlice(*node);
        } else {
            nodeTime = timeSlice(*node);
            plainTime = timeSlice(*plain);
        }
        ++turn;
        plainTimes.push_back(plainTime);
        nodeTimes.push_back(nodeTime);
        ratios.push_back(nodeTime / plainTime);
        state.SetIterationTime(nodeTime * 1e-9);
    }

    const auto framesPerSlice = static_cast<double>(chunksPerSlice * framesPerChunk);
    state.counters["plain_ns_per_frame"] = median(plainTimes) / framesPerSlice;
    state.counters["node_ns_per_frame"] = median(nodeTimes) / framesPerSlice;
    state.counters["overhead_percent"] = 100 * (median(ratios) - 1);
    state.counters["overhead2"] = 100 * (median(nodeTimes)/median(plainTimes) - 1);
    state.counters["overheadmin"] = 100 * (*std::min_element(nodeTimes.begin(),nodeTimes.end())/(*std::min_element(plainTimes.begin(),plainTimes.end())) - 1);
}

void SBCEncoderNode(benchmark::State& state) {
    compare<PlainEncoder, EncoderGraph>(state, slicePcm(), kCodeSize);
}

void SBCDecoderNode(benchmark::State& state) {
    compare<PlainDecoder, DecoderGraph>(state, sliceFrames(), kFrameLength);
}
void AA(benchmark::State& state) {
    compare<PlainEncoder, PlainEncoder>(state, slicePcm(), kCodeSize);
}

void chunkSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("sbc_frames")->Arg(1)->Arg(12)->Arg(62)->MinTime(1)->UseManualTime();
}

BENCHMARK(AA)->Apply(chunkSizes);
BENCHMARK(SBCEncoderNode)->Apply(chunkSizes);
BENCHMARK(SBCDecoderNode)->Apply(chunkSizes);

}  // namespace
}  // namespace zav::benchmarks
