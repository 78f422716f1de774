#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"

#include <iostream>

#include "tests/support/NodeTest.hpp"
#include "tests/support/SbcLoop.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;

constexpr std::uint32_t kDefaultFlags = 0x00200B00;

/// A decoder of default frames: mono 16 kHz, 72 bytes to 256.
class SBCDecoderTest : public NodeTest<SBCDecoder> {
 protected:
    SBCDecoderTest() { make(sbcFormat(16000, 1, kDefaultFlags, 72)); }

    const Bytes frameBytes_ = SbcLoop(Configuration()).encode(testPcm(128 * 10));
    const std::span<const std::byte> frames_{frameBytes_};
};

TEST_F(SBCDecoderTest, announces16BitPcm) {
    EXPECT_EQ(node_->outDataFormat(), pcmFormat(16000, 1));
    make(sbcFormat(44100, 2, kDefaultFlags | 2, 72));
    EXPECT_EQ(node_->outDataFormat(), pcmFormat(44100, 2, 16, 6));
    EXPECT_EQ(node_->config()->mode, SBCCoding::ChannelMode::stereo);
}

TEST_F(SBCDecoderTest, decodesAsAPlainLoopDoes) {
    start();
    push({}, 0);
    push(frames_.first(4 * 72), 4);
    push(frames_.subspan(4 * 72), 6);
    end();
    EXPECT_EQ(sink_->calls, (Calls{"start", "audio", "audio", "audio", "end"}));
    EXPECT_TRUE(sink_->chunks[0].bytes.empty());
    EXPECT_EQ(sink_->chunks[1].bytes.size(), 4U * 256);
    EXPECT_EQ(sink_->chunks[1].packetNum, 4U);  // SBC frames, though these are PCM bytes
    EXPECT_FALSE(sink_->chunks[1].hasDescriptions);
    EXPECT_EQ(sink_->allBytes(), SbcLoop(Configuration()).decode(frames_));
}

TEST_F(SBCDecoderTest, stopsAtWhatIsNoWholeFrame) {
    EXPECT_DEATH(push(frames_.first(180), 2),
                 "^Fatal error: Not integral multiple. This generaly means a mismatch stream data "
                 "format: file SBCCoding, line 481\n");
    Bytes damaged = frameBytes_;
    damaged[72] = std::byte{0};  // the second frame's sync byte
    // The frame before it is not passed on.
    sink_->onCall = [](const std::string& call) { std::cerr << call; };
    EXPECT_DEATH(push(damaged, 10), "^Fatal error: Decoding failed: file SBCCoding, line 496\n");
}

TEST_F(SBCDecoderTest, leavesSilenceAfterAFrameOfFewerSamples) {
    // A frame of 4 blocks has a quarter of the samples that the stream's format announces.
    Configuration shorter;
    shorter.blocks = SBCCoding::Block::_4;
    Bytes frame = SbcLoop(shorter).encode(testPcm(32));
    frame.resize(72);
    push(frame, 1);
    const Bytes& pcm = sink_->chunks[0].bytes;
    ASSERT_EQ(pcm.size(), 256U);
    const auto rest = std::span(pcm).subspan(shorter.codeSize());
    EXPECT_EQ(std::ranges::count(rest, std::byte{0}), 256 - 64);
}

TEST_F(SBCDecoderTest, refusesUnsuitableUpstreams) {
    expectRefused<SBCDecoder>({pcmFormat(16000, 1), sbcFormat(22050, 1, kDefaultFlags, 72),
                               sbcFormat(16000, 0, kDefaultFlags, 72),
                               sbcFormat(16000, 3, kDefaultFlags, 72)});
}

TEST_F(SBCDecoderTest, takesNoConfiguration) {
    EXPECT_DEATH(makeNode<SBCDecoder>(source_, std::make_shared<Configuration>()),
                 "Fatal error: Use of unimplemented initializer "
                 "'init\\(audioFrom:configuration:\\)' for class 'ZAVAudioStreaming.SBCDecoder'");
}

}  // namespace
}  // namespace zav::test
