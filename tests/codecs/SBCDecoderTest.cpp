#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"

#include <gtest/gtest.h>

#include <iostream>

#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "tests/support/Formats.hpp"
#include "tests/support/RecordingSink.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/TestAudio.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;

constexpr std::uint32_t kDefaultFlags = 0x00200B00;

/// A decoder of default frames: mono 16 kHz, 72 bytes to 256.
class SBCDecoderTest : public testing::Test {
 protected:
    SBCDecoderTest() {
        source_->setOutDataFormat(sbcFormat(16000, 1, kDefaultFlags, 72));
        decoder_ = makeNode<SBCDecoder>(source_);
        sink_ = makeNode<RecordingSink>(decoder_);
    }

    void push(const Bytes& frames, std::uint64_t frameCount) {
        source_->downstreams().receiveAudio(frames.data(), frames.size(), frameCount, nullptr);
    }

    std::shared_ptr<PeripheralSource> source_ = makeNode<PeripheralSource>();
    std::shared_ptr<SBCDecoder> decoder_;
    std::shared_ptr<RecordingSink> sink_;
    const Bytes frames_ = SbcLoop(Configuration()).encode(testPcm(128 * 10));
};

TEST_F(SBCDecoderTest, announces16BitPcm) {
    EXPECT_EQ(decoder_->outDataFormat(), pcmFormat(16000, 1));
    source_->setOutDataFormat(sbcFormat(44100, 2, kDefaultFlags | 2, 72));
    const auto stereo = makeNode<SBCDecoder>(source_);
    EXPECT_EQ(stereo->outDataFormat(), pcmFormat(44100, 2, 16, 6));
    EXPECT_EQ(stereo->config()->mode, SBCCoding::ChannelMode::stereo);
}

TEST_F(SBCDecoderTest, decodesAsAPlainLoopDoes) {
    push(Bytes(frames_.begin(), frames_.begin() + 4 * 72), 4);
    push(Bytes(frames_.begin() + 4 * 72, frames_.end()), 6);
    EXPECT_EQ(sink_->allBytes(), SbcLoop(Configuration()).decode(frames_));
    EXPECT_EQ(sink_->chunks[0].bytes.size(), 4U * 256);
    EXPECT_EQ(sink_->chunks[0].packetNum, 4U);  // SBC frames, though these are PCM bytes
    EXPECT_FALSE(sink_->chunks[0].hasDescriptions);
}

TEST_F(SBCDecoderTest, passesOnTheFlowAndAnEmptyChunk) {
    source_->downstreams().onAudioStreamFlowStart();
    push({}, 0);
    source_->downstreams().onAudioStreamFlowEnd();
    EXPECT_EQ(sink_->calls, (std::vector<std::string>{"start", "audio", "end"}));
    EXPECT_TRUE(sink_->chunks[0].bytes.empty());
}

TEST_F(SBCDecoderTest, stopsAtWhatIsNoWholeFrame) {
    const Bytes twoAndAHalf(frames_.begin(), frames_.begin() + 180);
    EXPECT_DEATH(push(twoAndAHalf, 2),
                 "^Fatal error: Not integral multiple. This generaly means a mismatch stream data "
                 "format: file SBCCoding, line 481\n");
    Bytes damaged = frames_;
    damaged[72] = std::byte{0};  // the second frame's sync byte
    // Not even the frame before it is passed on.
    sink_->onCall = [](const std::string& call) { std::cerr << call; };
    EXPECT_DEATH(push(damaged, 10), "^Fatal error: Decoding failed: file SBCCoding, line 496\n");
}

// A two-channel format always says stereo; frames of another mode decode by their own headers where
// their length happens to be the same.
TEST_F(SBCDecoderTest, followsTheModeOfTheFrames) {
    Configuration joint;
    joint.mode = SBCCoding::ChannelMode::jointStereo;
    joint.subband = SBCCoding::Subband::_4;
    joint.blocks = SBCCoding::Block::_4;
    joint.bitpool = 19;  // 4 x 19 bits leave room for the 4 joint bits in the last byte
    const Bytes frames = SbcLoop(joint).encode(testPcm(2 * 16 * 20));
    source_->setOutDataFormat(
        sbcFormat(16000, 2, joint.formatFlags(), static_cast<std::uint32_t>(joint.frameLen())));
    const auto decoder = makeNode<SBCDecoder>(source_);
    const auto sink = makeNode<RecordingSink>(decoder);
    decoder->receiveAudio(frames.data(), frames.size(), 20, nullptr);
    EXPECT_EQ(sink->allBytes(), SbcLoop(joint).decode(frames));
    EXPECT_EQ(decoder->config()->mode, SBCCoding::ChannelMode::stereo);
}

TEST_F(SBCDecoderTest, decodesAndDropsWithoutTargets) {
    const auto alone = makeNode<SBCDecoder>(source_);
    alone->onAudioStreamFlowStart();
    alone->receiveAudio(frames_.data(), frames_.size(), 10, nullptr);
    alone->onAudioStreamFlowEnd();
}

TEST_F(SBCDecoderTest, leavesSilenceWhereAFrameSaysLessThanItsPlace) {
    // Frames of 4 blocks fill a quarter of what the stream's format promises.
    Configuration shorter;
    shorter.blocks = SBCCoding::Block::_4;
    Bytes frame = SbcLoop(shorter).encode(testPcm(32));
    const std::size_t pcmSize = shorter.codeSize();
    frame.resize(72);
    push(frame, 1);
    ASSERT_EQ(sink_->chunks[0].bytes.size(), 256U);
    EXPECT_EQ(Bytes(sink_->chunks[0].bytes.begin() + static_cast<std::ptrdiff_t>(pcmSize),
                    sink_->chunks[0].bytes.end()),
              Bytes(256 - pcmSize));
}

TEST_F(SBCDecoderTest, doesNotOfferAConfigurationOfItsOwn) {
    const auto configuration = std::make_shared<Configuration>();
    EXPECT_DEATH(makeNode<SBCDecoder>(source_, configuration),
                 "Fatal error: Use of unimplemented initializer "
                 "'init\\(audioFrom:configuration:\\)' for class 'ZAVAudioStreaming.SBCDecoder'");
}

TEST(SBCDecoder, refusesUnsuitableUpstreams) {
    const auto source = makeNode<PeripheralSource>();
    for (const auto& format :
         {AudioStreamBasicDescription{}, pcmFormat(16000, 1),
          sbcFormat(22050, 1, kDefaultFlags, 72), sbcFormat(16000, 0, kDefaultFlags, 72),
          sbcFormat(16000, 3, kDefaultFlags, 72)}) {
        source->setOutDataFormat(format);
        EXPECT_THROW(makeNode<SBCDecoder>(source), AudioStreamError);
    }
    EXPECT_TRUE(source->downstreams().empty());
}

TEST(SBCDecoder, undoesTheEncoderInAGraph) {
    const auto source = makeNode<PeripheralSource>();
    source->setOutDataFormat(pcmFormat(48000, 2));
    auto configuration = std::make_shared<Configuration>();
    configuration->freq = SBCCoding::Frequency::_48000;
    configuration->mode = SBCCoding::ChannelMode::stereo;
    configuration->bitpool = 250;
    const auto encoder = makeNode<SBCEncoder>(source, configuration);
    const auto decoder = makeNode<SBCDecoder>(encoder);
    const auto sink = makeNode<RecordingSink>(decoder);
    const Bytes pcm = testPcm(2 * 128 * 20);
    source->downstreams().receiveAudio(pcm.data(), pcm.size(), 128 * 20, nullptr);

    // SBC's filter bank delays by 9 x subbands + 1 frames: 73.
    const Bytes decoded = sink->allBytes();
    ASSERT_EQ(decoded.size(), pcm.size());
    const auto sampleAt = [](const Bytes& bytes, std::size_t index) {
        return static_cast<double>(
            static_cast<std::int16_t>(std::to_integer<unsigned>(bytes[2 * index]) |
                                      std::to_integer<unsigned>(bytes[2 * index + 1]) << 8U));
    };
    constexpr std::size_t kDelay = 2 * 73;
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 0; i + kDelay < pcm.size() / 2; ++i) {
        const double expected = sampleAt(pcm, i);
        const double error = expected - sampleAt(decoded, i + kDelay);
        signal += expected * expected;
        noise += error * error;
    }
    EXPECT_GT(10 * std::log10(signal / noise), 40) << "dB";
}

}  // namespace
}  // namespace zav::test
