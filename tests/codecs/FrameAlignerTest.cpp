#include "ZAVAudioStreaming/codecs/FrameAligner.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "ZAVAudioStreaming/codecs/OpusEncoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/DiagnosticsLines.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/OpusLoop.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;
using AtFlowEnd = FrameAligner::AtFlowEnd;

class FrameAlignerTest : public testing::Test {
 protected:
    FrameAlignerTest() { source_->setOutDataFormat(pcmFormat(16000, 1)); }

    void make(std::size_t bytesPerChunk, AtFlowEnd atFlowEnd = AtFlowEnd::dropRest) {
        aligner_ = makeNode<FrameAligner>(source_, bytesPerChunk, atFlowEnd);
        sink_ = makeNode<RecordingSink>(aligner_);
    }

    std::vector<std::size_t> passedSizes() const {
        std::vector<std::size_t> sizes;
        for (const auto& chunk : sink_->chunks) {
            sizes.push_back(chunk.bytes.size());
        }
        return sizes;
    }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<FrameAligner> aligner_;
    std::shared_ptr<RecordingSink> sink_;
};

TEST_F(FrameAlignerTest, passesWholePiecesOnAsOneChunk) {
    make(256);
    const Bytes pcm = testBytes(2000);
    std::size_t pushedSize = 0;
    const auto push = [&](std::size_t size) {
        aligner_->receiveAudio(&pcm[pushedSize], size, 12345, nullptr);
        pushedSize += size;
    };
    push(100);
    push(0);
    push(155);
    EXPECT_TRUE(sink_->calls.empty());
    push(1);    // 256
    push(700);  // 512 of 700
    EXPECT_EQ(aligner_->heldByteCount(), 188U);
    push(100);  // 256 of 288
    push(736);  // all of 768
    EXPECT_EQ(passedSizes(), (std::vector<std::size_t>{256, 512, 256, 768}));
    EXPECT_EQ(sink_->chunks[1].packetNum, 256U);
    EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
    EXPECT_EQ(aligner_->heldByteCount(), 0U);
    EXPECT_EQ(sink_->allBytes(), Bytes(pcm.begin(), pcm.begin() + 1792));
}

TEST_F(FrameAlignerTest, copiesNoAlignedChunk) {
    class Address : public PeripheralSink {
     public:
        using PeripheralSink::PeripheralSink;
        void receiveAudio(const void* bytes, std::uint64_t, std::uint64_t,
                          const AudioStreamPacketDescription*) override {
            received = bytes;
        }
        const void* received = nullptr;
    };
    make(256);
    const auto address = makeNode<Address>(aligner_);
    const Bytes pcm(600);
    aligner_->receiveAudio(&pcm[1], 512, 0, nullptr);
    EXPECT_EQ(address->received, &pcm[1]);
    aligner_->receiveAudio(&pcm[2], 512 + 10, 0, nullptr);
    EXPECT_EQ(address->received, &pcm[2]);
}

TEST_F(FrameAlignerTest, dropsOrPadsTheRestAtFlowEnd) {
    const Bytes pcm = testBytes(300);
    for (const auto atFlowEnd : {AtFlowEnd::dropRest, AtFlowEnd::padWithSilence}) {
        make(256, atFlowEnd);
        aligner_->onAudioStreamFlowStart();
        aligner_->receiveAudio(pcm.data(), pcm.size(), 0, nullptr);
        aligner_->onAudioStreamFlowEnd();
        EXPECT_EQ(aligner_->heldByteCount(), 0U);
        Bytes expected(pcm.begin(), pcm.begin() + 256);
        if (atFlowEnd == AtFlowEnd::padWithSilence) {
            expected = pcm;
            expected.resize(512);
        }
        EXPECT_EQ(sink_->allBytes(), expected);
        EXPECT_EQ(sink_->calls.front(), "start");
        EXPECT_EQ(sink_->calls.back(), "end");

        // Nothing is left to pad.
        sink_->calls.clear();
        aligner_->onAudioStreamFlowEnd();
        EXPECT_EQ(sink_->calls, std::vector<std::string>{"end"});
    }
}

TEST_F(FrameAlignerTest, padsWithTheSilenceOfTheFormat) {
    // What 12 bytes look like of which the first one was received, in the middle of a frame or not.
    const auto padded = [&](std::uint32_t channels, std::uint32_t bits, std::uint32_t flags) {
        source_->setOutDataFormat(pcmFormat(16000, channels, bits, flags));
        make(12, AtFlowEnd::padWithSilence);
        aligner_->receiveAudio("\x11", 1, 0, nullptr);
        aligner_->onAudioStreamFlowEnd();
        std::string text;
        for (const std::byte byte : sink_->allBytes()) {
            text += byte == std::byte{0x80} ? '8' : byte == std::byte{0} ? '0' : 'x';
        }
        return text;
    };
    EXPECT_EQ(padded(1, 16, kAudioFormatFlagIsSignedInteger), "x00000000000");
    EXPECT_EQ(padded(1, 32, kAudioFormatFlagIsFloat), "x00000000000");
    EXPECT_EQ(padded(2, 8, 0), "x88888888888");
    EXPECT_EQ(padded(1, 16, 0), "x80808080808");
    EXPECT_EQ(padded(2, 16, kAudioFormatFlagIsBigEndian), "x08080808080");
    EXPECT_EQ(padded(1, 24, 0), "x08008008008");
    EXPECT_EQ(padded(1, 32, kAudioFormatFlagIsBigEndian), "x00080008000");
}

TEST_F(FrameAlignerTest, refusesWhatItCannotAlign) {
    const auto makeOn = [&](const AudioStreamBasicDescription& format, std::size_t bytesPerChunk) {
        source_->setOutDataFormat(format);
        makeNode<FrameAligner>(source_, bytesPerChunk);
    };
    auto twelveBits = pcmFormat(16000, 2, 16, 0);
    twelveBits.mBitsPerChannel = 12;
    auto aLaw = pcmFormat(8000, 1, 8);
    aLaw.mFormatID = kAudioFormatALaw;
    EXPECT_THROW(makeOn({}, 256), AudioStreamError);
    EXPECT_THROW(makeOn(opusFormat(16000, 1), 256), AudioStreamError);
    EXPECT_THROW(makeOn(aLaw, 256), AudioStreamError);
    EXPECT_THROW(makeOn(twelveBits, 256), AudioStreamError);
    EXPECT_THROW(makeOn(pcmFormat(16000, 0), 256), AudioStreamError);
    EXPECT_THROW(makeOn(pcmFormat(16000, 2), 0), AudioStreamError);
    EXPECT_THROW(makeOn(pcmFormat(16000, 2), 258), AudioStreamError);
    EXPECT_TRUE(source_->downstreams().empty());
}

TEST_F(FrameAlignerTest, knowsTheFramesOfTheEncoders) {
    Configuration stereo;
    stereo.mode = SBCCoding::ChannelMode::stereo;
    stereo.subband = SBCCoding::Subband::_4;
    EXPECT_EQ(FrameAligner::bytesPerSbcFrame(stereo), 16U * 4U * 2U * 2U);
    EXPECT_EQ(FrameAligner::bytesPerOpusPacket(pcmFormat(8000, 1)), 960U);
    EXPECT_EQ(FrameAligner::bytesPerOpusPacket(pcmFormat(48000, 2)), 11520U);

    make(256);
    EXPECT_EQ(aligner_->outDataFormat(), pcmFormat(16000, 1));
    EXPECT_EQ(aligner_->inDataFormat(), pcmFormat(16000, 1));
    EXPECT_EQ(aligner_->upstream(), source_);
    source_->setOutDataFormat(pcmFormat(48000, 1));
    EXPECT_EQ(aligner_->outDataFormat(), pcmFormat(48000, 1));
}

/// Encoders on what a microphone delivers, with and without an aligner between.
class AlignedEncoderTest : public FrameAlignerTest {
 protected:
    using Cut = std::function<std::size_t()>;

    /// Pushes the audio in chunks whose sizes `nextSize` tells.
    void push(const Cut& nextSize) {
        for (std::size_t pushed = 0; pushed < pcm_.size();) {
            const std::size_t size = std::min(nextSize(), pcm_.size() - pushed);
            source_->downstreams().receiveAudio(&pcm_[pushed], size, size / 2, nullptr);
            pushed += size;
        }
        source_->downstreams().onAudioStreamFlowEnd();
    }

    static std::size_t halfSecond() { return 16000; }

    static Cut randomCut(unsigned seed) {
        return [random = std::mt19937(seed)]() mutable { return random() % 5000 + 1; };
    }

    Bytes sbcFrames(bool isAligned, const Cut& nextSize) {
        source_ = makeNode<PeripheralSource>();
        source_->setOutDataFormat(pcmFormat(16000, 1));
        const auto configuration = std::make_shared<Configuration>();
        std::shared_ptr<AudioStreamOutputable> upstream = source_;
        if (isAligned) {
            upstream =
                makeNode<FrameAligner>(source_, FrameAligner::bytesPerSbcFrame(*configuration));
        }
        const auto sink = makeNode<RecordingSink>(makeNode<SBCEncoder>(upstream, configuration));
        push(nextSize);
        return sink->allBytes();
    }

    std::vector<Bytes> opusPackets(bool isAligned, const Cut& nextSize) {
        source_ = makeNode<PeripheralSource>();
        source_->setOutDataFormat(pcmFormat(16000, 1));
        std::shared_ptr<AudioStreamOutputable> upstream = source_;
        if (isAligned) {
            upstream = makeNode<FrameAligner>(
                source_, FrameAligner::bytesPerOpusPacket(source_->outDataFormat()));
        }
        const auto encoder = makeNode<OpusEncoder>(upstream);
        const auto sink = makeNode<RecordingSink>(encoder);
        push(nextSize);
        std::vector<Bytes> packets;
        for (const auto& chunk : sink->chunks) {
            packets.push_back(chunk.bytes);
        }
        return packets;
    }

    DiagnosticsLines lines_;
    const Bytes pcm_ = testPcm(16000 * 8);  // 8 s
};

TEST_F(AlignedEncoderTest, encodesEveryByteOnce) {
    const Bytes sbc = SbcLoop(Configuration()).encode(pcm_);
    const auto opus = opusLoopEncode(pcm_, 16000, 1);
    EXPECT_TRUE(sbcFrames(true, halfSecond) == sbc);
    EXPECT_TRUE(opusPackets(true, halfSecond) == opus);
    for (unsigned seed = 1; seed <= 20; ++seed) {
        EXPECT_TRUE(sbcFrames(true, randomCut(seed)) == sbc) << "seed " << seed;
    }
    for (unsigned seed = 1; seed <= 3; ++seed) {
        EXPECT_TRUE(opusPackets(true, randomCut(seed)) == opus) << "seed " << seed;
    }

    // Without an aligner the encoders repeat what they saved.
    EXPECT_GT(sbcFrames(false, halfSecond).size(), sbc.size());
    EXPECT_GT(opusPackets(false, halfSecond).size(), opus.size());
}

}  // namespace
}  // namespace zav::test
