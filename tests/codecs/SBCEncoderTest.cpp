#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"

#include "tests/support/NodeTest.hpp"
#include "tests/support/SbcLoop.hpp"
#include "tests/support/WrappedCodecs.hpp"

namespace zav::test {
namespace {

using Configuration = SBCCoding::SBCConfiguration;
using Mode = SBCCoding::ChannelMode;

/// A default encoder: mono 16 kHz, blocks of 256 bytes to frames of 72.
class SBCEncoderTest : public NodeTest<SBCEncoder> {
 protected:
    static constexpr std::size_t kCodeSize = 256;
    static constexpr std::size_t kFrameLength = 72;

    SBCEncoderTest() { make(pcmFormat(16000, 1), std::make_shared<Configuration>()); }

    Bytes plainLoop(std::span<const std::byte> pcm) const {
        return SbcLoop(*node_->config()).encode(pcm);
    }

    const Bytes pcmBytes_ = testPcm(4000);
    const std::span<const std::byte> pcm_{pcmBytes_};
};

TEST_F(SBCEncoderTest, savesWhatDoesNotFillAFrame) {
    push(pcm_.first(100));
    push({});
    push(pcm_.subspan(100, 100));
    EXPECT_EQ(savedSize(), 200U);
    EXPECT_TRUE(sink_->allBytes().empty());
    push(pcm_.subspan(200, 800));
    EXPECT_EQ(savedSize(), 232U);
    push(pcm_.subspan(1000, 1000));
    EXPECT_EQ(savedSize(), 208U);

    // Chunks without frames are passed on, too.
    EXPECT_EQ(sink_->packetCounts(), (std::vector<std::uint64_t>{0, 0, 0, 3, 4}));
    EXPECT_EQ(sink_->chunks[3].bytes.size(), 3 * kFrameLength);
    EXPECT_FALSE(sink_->chunks[3].hasDescriptions);
    EXPECT_EQ(sink_->allBytes(), plainLoop(pcm_.first(2000)));
}

TEST_F(SBCEncoderTest, givesTheSameFramesForAnyCutThatLeavesBytesOver) {
    // Odd steps from 33 on: no chunk of these 8000 bytes ends on a frame boundary.
    for (const std::size_t step : {33U, 101U, 255U, 257U, 511U, 1023U, 7999U}) {
        make(pcmFormat(16000, 1), std::make_shared<Configuration>());
        pushInChunks(pcm_, step);
        EXPECT_EQ(sink_->allBytes(), plainLoop(pcm_)) << "chunks of " << step;
    }
}

// A chunk that ends on a frame boundary leaves the saved bytes, and the next chunk begins with them
// again. This is on purpose.
TEST_F(SBCEncoderTest, repeatsSavedBytesAfterAChunkThatEndsOnAFrameBoundary) {
    push(pcm_.first(300));                     // one frame, 44 bytes saved
    push(pcm_.subspan(300, 212 + kCodeSize));  // completes that frame and one more
    EXPECT_EQ(savedSize(), 44U);
    push(pcm_.subspan(768, kCodeSize));
    EXPECT_EQ(savedSize(), 44U);
    EXPECT_EQ(sink_->packetCounts(), (std::vector<std::uint64_t>{1, 2, 1}));

    EXPECT_EQ(sink_->allBytes(),
              plainLoop(joined({pcm_.first(768), pcm_.subspan(256, 44), pcm_.subspan(768, 212)})));
}

TEST_F(SBCEncoderTest, dropsSavedBytesAtFlowEndButNotAtFlowStart) {
    push(pcm_.first(100));
    start();
    EXPECT_EQ(savedSize(), 100U);
    end();
    EXPECT_EQ(node_->partialFrameBytes(), std::nullopt);
    EXPECT_EQ(sink_->calls, (Calls{"audio", "start", "end"}));
    push(pcm_.first(kCodeSize));
    EXPECT_EQ(savedSize(), 0U);
}

TEST_F(SBCEncoderTest, stopsWhenTheCodecRefuses) {
    const auto pushWithRefusal = [&](int refusedCall) {
        wrappedCodecs().sbcEncodeToRefuse = refusedCall;
        push(pcm_.first(3 * kCodeSize));
    };
    EXPECT_DEATH(pushWithRefusal(2), "^Fatal error: Encoding failed: file SBCCoding, line 349\n");
    push(pcm_.first(200));
    EXPECT_DEATH(pushWithRefusal(1), "^Fatal error: Encoding failed: file SBCCoding, line 338\n");
    EXPECT_DEATH(node_->receiveAudio(pcm_.data(), std::uint64_t{1} << 63U, 1, nullptr),
                 "Fatal error: Not enough bits");
}

TEST_F(SBCEncoderTest, givesZerosForABitpoolThatCannotBePacked) {
    const auto tooMuch = std::make_shared<Configuration>();
    tooMuch->bitpool = 200;  // mono with 8 subbands takes 128 at most
    make(pcmFormat(16000, 1), tooMuch);
    push(pcm_.first(2 * kCodeSize));
    EXPECT_EQ(sink_->allBytes(), Bytes(2 * tooMuch->frameLen()));
}

TEST_F(SBCEncoderTest, refusesUnsuitableUpstreams) {
    const auto configuration = std::make_shared<Configuration>();
    auto notPcm = pcmFormat(16000, 1);
    notPcm.mFormatID = kAudioFormatSbc;
    expectRefused<SBCEncoder>({notPcm, pcmFormat(22050, 1)}, configuration);

    auto lessThanAByte = pcmFormat(16000, 1);
    lessThanAByte.mBitsPerChannel = 7;
    EXPECT_DEATH(make(lessThanAByte, configuration), "Fatal error: Division by zero");
}

// A test of the tool compares frames of all parameters with those of another encoder.
TEST_F(SBCEncoderTest, announcesTheFormatOfItsFrames) {
    EXPECT_EQ(node_->outDataFormat(), sbcFormat(16000, 1, 0x00200B00, 72));
    const auto configuration = std::make_shared<Configuration>();
    configuration->freq = SBCCoding::Frequency::_48000;
    configuration->mode = Mode::jointStereo;
    configuration->subband = SBCCoding::Subband::_4;
    configuration->blocks = SBCCoding::Block::_12;
    configuration->endian = SBCCoding::Endianess::big;
    configuration->bitpool = 19;
    make(pcmFormat(48000, 2, 16, 6), configuration);
    push(pcm_.first(1000));
    EXPECT_EQ(sink_->allBytes(), plainLoop(pcm_.first(1000)));
    // 4 + 4 bytes, 4 bits and 12 x 19 bits
    auto format = sbcFormat(48000, 2, 0x00130202, 37);
    format.mFramesPerPacket = 12 * 4;
    EXPECT_EQ(node_->outDataFormat(), format);
}

}  // namespace
}  // namespace zav::test
